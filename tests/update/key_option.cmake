# cmake -DSOURCE=<tree> -DFOLDER=<scratch folder> -DGENERATOR=<name> -DPREFIX_PATH=<list> -P key_option.cmake
#
# Which texts for CORVANE_UPDATE_KEY are taken and which refused.

set(digits 0123456789abcdef)
set(key ${digits}${digits}${digits}${digits})
string(TOUPPER ${key} capitals)
string(SUBSTRING ${key} 1 -1 short)

# expect(<taken|refused> <what> <cmake's arguments>...)
function(expect outcome what)
    execute_process(COMMAND "${CMAKE_COMMAND}" ${ARGN}
        RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
    if(result EQUAL 0)
        set(found taken)
    elseif(said MATCHES "CORVANE_UPDATE_KEY has to be empty or 64")
        set(found refused)
    else()
        set(found "broken: ${said}")
    endif()
    if(NOT found STREQUAL outcome)
        message(FATAL_ERROR "${what}: should be ${outcome}, is ${found}")
    endif()
    message(STATUS "${what}: ${found}")
endfunction()

function(expect_key outcome what value)
    expect(${outcome} "${what}" "-DCORVANE_UPDATE_KEY=${value}" -P "${SOURCE}/cmake/CorvaneUpdateKey.cmake")
endfunction()

expect_key(taken "no key" "")
expect_key(taken "64 digits" ${key})
expect_key(taken "64 digits in capitals" ${capitals})
expect_key(refused "63 digits" ${short})
expect_key(refused "65 digits" ${key}0)
expect_key(refused "128 digits" ${key}${key})
expect_key(refused "a letter that is no digit" g${short})
expect_key(refused "a space before" " ${short}")
expect_key(refused "a space within" "${short} 0")
expect_key(refused "0x before" 0x${key})
expect_key(refused "a line feed behind 63 digits" "${short}\n")
expect_key(refused "two lines" "${key}\n${key}")
expect_key(refused "a word that is false" OFF)
expect_key(refused "a word" NOTFOUND)
expect_key(refused "base64" "1hqYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=")

# The whole tree takes it from there: a bad key ends its configuration, a good one is compiled in.
file(REMOVE_RECURSE "${FOLDER}")
set(tree -S "${SOURCE}" -B "${FOLDER}" -G "${GENERATOR}" "-DCMAKE_PREFIX_PATH=${PREFIX_PATH}" -DBUILD_TESTING=OFF
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
expect(refused "the tree with 63 digits" ${tree} "-DCORVANE_UPDATE_KEY=${short}")
expect(taken "the tree with 64 digits" ${tree} "-DCORVANE_UPDATE_KEY=${key}")
file(STRINGS "${FOLDER}/compile_commands.json" commands REGEX "CORVANE_UPDATE_KEY=[\\]*\"${key}[\\]*\"")
list(LENGTH commands count)
if(NOT count EQUAL 1)
    message(FATAL_ERROR "the key should be compiled into one file, and is into ${count}")
endif()

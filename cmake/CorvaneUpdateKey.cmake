# CORVANE_UPDATE_KEY: public key of the publisher whose updates the program accepts. A key that is almost valid must not
# build a program that accepts every update, or none.

set(CORVANE_UPDATE_KEY "" CACHE STRING
    "Ed25519 public key of the publisher, 64 hexadecimal digits; empty: signatures of updates aren't checked")
string(LENGTH "${CORVANE_UPDATE_KEY}" corvane_update_key_length)
if(NOT "${CORVANE_UPDATE_KEY}" MATCHES "^[0-9A-Fa-f]*$" OR NOT corvane_update_key_length MATCHES "^(0|64)$")
    message(FATAL_ERROR
        "CORVANE_UPDATE_KEY has to be empty or 64 hexadecimal digits, and is \"${CORVANE_UPDATE_KEY}\"")
endif()

# Points of small order, under which everybody can sign everything: as in update/UpdateSignature.cpp, each with either
# sign.
function(corvane_refuse_weak_key)
    string(TOLOWER "${CORVANE_UPDATE_KEY}" digits)
    string(REPEAT "0" 62 zeros)
    string(REPEAT "f" 60 ones)
    foreach(weak IN ITEMS
            "00${zeros}" "01${zeros}"
            26e8958fc2b227b045c3f489f2ef98f0d5dfac05d3c63339b13802886d53fc05
            c7176a703d4dd84fba3c0b760d10670f2a2053fa2c39ccc64ec7fd7792ac037a
            ec${ones}7f ed${ones}7f ee${ones}7f)
        string(SUBSTRING ${weak} 0 62 start)
        string(SUBSTRING ${weak} 62 2 end)
        math(EXPR negative "0x${end} + 128" OUTPUT_FORMAT HEXADECIMAL)
        string(SUBSTRING ${negative} 2 -1 negative)
        if("${digits}" STREQUAL "${weak}" OR "${digits}" STREQUAL "${start}${negative}")
            message(FATAL_ERROR
                "CORVANE_UPDATE_KEY is a weak key, under which everybody can sign: \"${CORVANE_UPDATE_KEY}\"")
        endif()
    endforeach()
endfunction()
corvane_refuse_weak_key()

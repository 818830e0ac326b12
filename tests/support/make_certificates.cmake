# cmake -DOPENSSL=<program> -DFOLDER=<folder> -P make_certificates.cmake
#
# Creates an authority (ca.pem) and certificates of servers on loopback, all with the key server.key:
#   trusted.pem    by that authority, for 127.0.0.1 and localhost
#   expired.pem    the same, expired
#   elsewhere.pem  by that authority, for another host
#   stranger.pem   for 127.0.0.1 and localhost, by an authority that nobody trusts

file(MAKE_DIRECTORY "${FOLDER}")

function(openssl)
    execute_process(COMMAND "${OPENSSL}" ${ARGN}
        WORKING_DIRECTORY "${FOLDER}" RESULT_VARIABLE result ERROR_VARIABLE said OUTPUT_QUIET)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "openssl ${ARGN}: ${said}")
    endif()
endfunction()

function(authority name)
    openssl(req -x509 -newkey rsa:2048 -nodes -keyout ${name}.key -out ${name}.pem -days 3650
        -subj "/CN=CORVANE tests, ${name}" -addext basicConstraints=critical,CA:TRUE)
endfunction()

function(request name names)
    openssl(req -new -key server.key -out ${name}.csr -subj "/CN=CORVANE tests"
        -addext "subjectAltName=${names}" -addext basicConstraints=CA:FALSE)
endfunction()

function(certificate name authority names)
    request(${name} ${names})
    openssl(x509 -req -in ${name}.csr -out ${name}.pem -days 3650 -copy_extensions copy
        -CA ${authority}.pem -CAkey ${authority}.key -CAcreateserial)
endfunction()

# The only command of OpenSSL that takes past dates, in every version of it.
function(past_certificate name authority names)
    request(${name} ${names})
    file(WRITE "${FOLDER}/index.txt" "")
    file(WRITE "${FOLDER}/past.cnf"
        "[ca]\ndefault_ca = past\n"
        "[past]\ndatabase = index.txt\nnew_certs_dir = .\ndefault_md = sha256\ncopy_extensions = copy\n"
        "policy = any\nrand_serial = yes\n"
        "[any]\ncommonName = supplied\n")
    openssl(ca -batch -notext -config past.cnf -in ${name}.csr -out ${name}.pem
        -startdate 20200101000000Z -enddate 20200201000000Z -cert ${authority}.pem -keyfile ${authority}.key)
endfunction()

authority(ca)
authority(other-ca)
openssl(genrsa -out server.key 2048)
certificate(trusted ca IP:127.0.0.1,DNS:localhost)
past_certificate(expired ca IP:127.0.0.1,DNS:localhost)
certificate(elsewhere ca DNS:elsewhere.example)
certificate(stranger other-ca IP:127.0.0.1,DNS:localhost)

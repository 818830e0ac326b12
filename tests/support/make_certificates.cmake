# cmake -DOPENSSL=<program> -DFOLDER=<folder> -P make_certificates.cmake
#
# Makes an authority (ca.pem) and what a server on loopback may show, all with the key server.key:
#   trusted.pem    by that authority, for 127.0.0.1 and localhost
#   expired.pem    the same, but of yesterday
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

function(certificate name authority days names)
    openssl(req -new -key server.key -out ${name}.csr -subj "/CN=CORVANE tests"
        -addext "subjectAltName=${names}" -addext basicConstraints=CA:FALSE)
    openssl(x509 -req -in ${name}.csr -out ${name}.pem -days ${days} -copy_extensions copy
        -CA ${authority}.pem -CAkey ${authority}.key -CAcreateserial)
endfunction()

authority(ca)
authority(other-ca)
openssl(genrsa -out server.key 2048)
certificate(trusted ca 3650 IP:127.0.0.1,DNS:localhost)
certificate(expired ca -1 IP:127.0.0.1,DNS:localhost)
certificate(elsewhere ca 3650 DNS:elsewhere.example)
certificate(stranger other-ca 3650 IP:127.0.0.1,DNS:localhost)

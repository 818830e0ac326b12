# What update/ hashes a package with: OpenSSL where its development files are, otherwise Qt's own code, which is slower.
# On Windows always Qt's: there a library more would have to be shipped.

set(CORVANE_SHA256_SOURCE Sha256_qt.cpp)
set(CORVANE_SHA256_LIBRARY "")
set(CORVANE_SHA256 "Qt")
if(UNIX)
    find_package(OpenSSL 3 QUIET COMPONENTS Crypto)
    if(TARGET OpenSSL::Crypto)
        set(CORVANE_SHA256_SOURCE Sha256_openssl.cpp)
        set(CORVANE_SHA256_LIBRARY OpenSSL::Crypto)
        set(CORVANE_SHA256 "OpenSSL ${OPENSSL_VERSION}")
    endif()
endif()

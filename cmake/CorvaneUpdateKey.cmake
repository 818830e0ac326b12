# CORVANE_UPDATE_KEY: public key of the publisher whose updates the program accepts. A key that is almost valid must not
# build a program that accepts every update, or none.

set(CORVANE_UPDATE_KEY "" CACHE STRING
    "Ed25519 public key of the publisher, 64 hexadecimal digits; empty: signatures of updates aren't checked")
string(LENGTH "${CORVANE_UPDATE_KEY}" corvane_update_key_length)
if(NOT "${CORVANE_UPDATE_KEY}" MATCHES "^[0-9A-Fa-f]*$" OR NOT corvane_update_key_length MATCHES "^(0|64)$")
    message(FATAL_ERROR
        "CORVANE_UPDATE_KEY has to be empty or 64 hexadecimal digits, and is \"${CORVANE_UPDATE_KEY}\"")
endif()

# The local HTTPS servers' certificates, made once per build tree with openssl. Targets that compile
# tests/support/TestHttpServer.cpp call orvex_use_test_certificates(target).
if(NOT TARGET orvex_test_certs)
  set(ORVEX_TEST_CERT_DIR ${CMAKE_BINARY_DIR}/test-certificates)
  add_custom_command(
    OUTPUT ${ORVEX_TEST_CERT_DIR}/trusted-ca.pem ${ORVEX_TEST_CERT_DIR}/untrusted-ca.pem
    COMMAND sh ${CMAKE_CURRENT_LIST_DIR}/make-test-certs.sh ${ORVEX_TEST_CERT_DIR}
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/make-test-certs.sh
    COMMENT "Test certificates" VERBATIM)
  add_custom_target(orvex_test_certs DEPENDS ${ORVEX_TEST_CERT_DIR}/trusted-ca.pem)
  set_property(GLOBAL PROPERTY ORVEX_TEST_CERT_DIR ${ORVEX_TEST_CERT_DIR})
endif()

function(orvex_use_test_certificates target)
  get_property(dir GLOBAL PROPERTY ORVEX_TEST_CERT_DIR)
  add_dependencies(${target} orvex_test_certs)
  target_compile_definitions(${target} PRIVATE ORVEX_TEST_CERT_DIR="${dir}")
endfunction()

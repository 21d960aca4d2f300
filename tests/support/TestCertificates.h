// Certificates for the local HTTPS test servers, made at build time by make-test-certs.sh: a CA and
// a server certificate for 127.0.0.1 and localhost signed by it.
#ifndef ORVEX_TEST_CERTIFICATES_H
#define ORVEX_TEST_CERTIFICATES_H

#include <string>

namespace orvex_test {

struct TestCertificates {
    std::string caPem;
    std::string serverCertPem;
    std::string serverKeyPem;
    // The PEM file holding caPem.
    std::string caFile;

    // The chain clients are told to trust (the one TestHttpServer's caFile() names).
    static const TestCertificates& trusted();
    // An independent chain no client trusts, for certificate-verification failures.
    static const TestCertificates& untrusted();
};

}  // namespace orvex_test

#endif

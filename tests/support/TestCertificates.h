// Certificates for the local HTTPS test servers, made when first asked for: a CA and a server
// certificate for 127.0.0.1 and localhost signed by it, valid for two days from now.
#ifndef ORVEX_TEST_CERTIFICATES_H
#define ORVEX_TEST_CERTIFICATES_H

#include <string>

namespace orvex_test {

struct TestCertificates {
    std::string caPem;
    std::string serverCertPem;
    std::string serverKeyPem;
    // A PEM file holding caPem, removed when the process exits.
    std::string caFile;

    // The chain clients are told to trust (the one TestHttpServer's caFile() names).
    static const TestCertificates& trusted();
    // An independent chain no client trusts, for certificate-verification failures.
    static const TestCertificates& untrusted();
};

}  // namespace orvex_test

#endif

#include "TestCertificates.h"

#include <fstream>
#include <sstream>

namespace orvex_test {
namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TestCertificates load(const std::string& chain) {
    const std::string dir = ORVEX_TEST_CERT_DIR "/" + chain;
    return TestCertificates{readFile(dir + "-ca.pem"), readFile(dir + "-server.pem"),
                            readFile(dir + "-server.key"), dir + "-ca.pem"};
}

}  // namespace

const TestCertificates& TestCertificates::trusted() {
    static const TestCertificates certs = load("trusted");
    return certs;
}

const TestCertificates& TestCertificates::untrusted() {
    static const TestCertificates certs = load("untrusted");
    return certs;
}

}  // namespace orvex_test

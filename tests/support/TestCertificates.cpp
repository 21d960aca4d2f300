#include "TestCertificates.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace orvex_test {
namespace {

void check(int rc, const char* what) {
    if (rc < 0) throw std::runtime_error(std::string(what) + ": " + gnutls_strerror(rc));
}

struct Key {
    gnutls_x509_privkey_t key = nullptr;
    Key() {
        check(gnutls_x509_privkey_init(&key), "privkey_init");
        check(gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                                           GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0),
              "privkey_generate");
    }
    ~Key() { gnutls_x509_privkey_deinit(key); }
    std::vector<unsigned char> id() const {
        std::vector<unsigned char> buf(64);
        size_t size = buf.size();
        check(gnutls_x509_privkey_get_key_id(key, 0, buf.data(), &size), "get_key_id");
        buf.resize(size);
        return buf;
    }
    std::string pem() const {
        gnutls_datum_t out{};
        check(gnutls_x509_privkey_export2(key, GNUTLS_X509_FMT_PEM, &out), "privkey_export");
        std::string s(reinterpret_cast<char*>(out.data), out.size);
        gnutls_free(out.data);
        return s;
    }
};

struct Cert {
    gnutls_x509_crt_t crt = nullptr;
    Cert(const Key& key, const std::string& commonName, unsigned serial) {
        check(gnutls_x509_crt_init(&crt), "crt_init");
        check(gnutls_x509_crt_set_version(crt, 3), "set_version");
        unsigned char serialBytes[4] = {
            static_cast<unsigned char>(serial >> 24), static_cast<unsigned char>(serial >> 16),
            static_cast<unsigned char>(serial >> 8), static_cast<unsigned char>(serial)};
        check(gnutls_x509_crt_set_serial(crt, serialBytes, sizeof serialBytes), "set_serial");
        time_t now = time(nullptr);
        check(gnutls_x509_crt_set_activation_time(crt, now - 3600), "set_activation_time");
        check(gnutls_x509_crt_set_expiration_time(crt, now + 2 * 86400), "set_expiration_time");
        check(gnutls_x509_crt_set_dn_by_oid(crt, GNUTLS_OID_X520_COMMON_NAME, 0, commonName.data(),
                                            commonName.size()),
              "set_dn");
        check(gnutls_x509_crt_set_key(crt, key.key), "set_key");
        auto id = key.id();
        check(gnutls_x509_crt_set_subject_key_id(crt, id.data(), id.size()), "set_subject_key_id");
    }
    ~Cert() { gnutls_x509_crt_deinit(crt); }
    std::string pem() const {
        gnutls_datum_t out{};
        check(gnutls_x509_crt_export2(crt, GNUTLS_X509_FMT_PEM, &out), "crt_export");
        std::string s(reinterpret_cast<char*>(out.data), out.size);
        gnutls_free(out.data);
        return s;
    }
};

std::string g_dir;

void removeDir() {
    std::error_code ec;
    if (!g_dir.empty()) std::filesystem::remove_all(g_dir, ec);
}

std::string writeCaFile(const std::string& pem, const char* name) {
    if (g_dir.empty()) {
        const char* tmp = getenv("TMPDIR");
        std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/orvex-ca-XXXXXX";
        if (!mkdtemp(templ.data())) throw std::runtime_error("mkdtemp failed");
        g_dir = templ;
        atexit(removeDir);
    }
    std::string path = g_dir + "/" + name;
    std::ofstream(path) << pem;
    return path;
}

TestCertificates make(const char* label, unsigned serialBase) {
    Key caKey;
    Cert ca(caKey, std::string("Orvex ") + label + " Test CA", serialBase);
    check(gnutls_x509_crt_set_basic_constraints(ca.crt, 1, -1), "ca basic_constraints");
    check(gnutls_x509_crt_set_key_usage(ca.crt, GNUTLS_KEY_KEY_CERT_SIGN | GNUTLS_KEY_CRL_SIGN),
          "ca key_usage");
    check(gnutls_x509_crt_sign2(ca.crt, ca.crt, caKey.key, GNUTLS_DIG_SHA256, 0), "ca sign");

    Key serverKey;
    Cert server(serverKey, "localhost", serialBase + 1);
    check(gnutls_x509_crt_set_basic_constraints(server.crt, 0, -1), "basic_constraints");
    check(gnutls_x509_crt_set_key_usage(server.crt, GNUTLS_KEY_DIGITAL_SIGNATURE), "key_usage");
    check(gnutls_x509_crt_set_key_purpose_oid(server.crt, GNUTLS_KP_TLS_WWW_SERVER, 0),
          "key_purpose");
    check(gnutls_x509_crt_set_subject_alt_name(server.crt, GNUTLS_SAN_DNSNAME, "localhost", 9,
                                               GNUTLS_FSAN_SET),
          "san dns");
    const unsigned char loopback[4] = {127, 0, 0, 1};
    check(gnutls_x509_crt_set_subject_alt_name(server.crt, GNUTLS_SAN_IPADDRESS, loopback, 4,
                                               GNUTLS_FSAN_APPEND),
          "san ip");
    auto caId = caKey.id();
    check(gnutls_x509_crt_set_authority_key_id(server.crt, caId.data(), caId.size()),
          "authority_key_id");
    check(gnutls_x509_crt_sign2(server.crt, ca.crt, caKey.key, GNUTLS_DIG_SHA256, 0),
          "server sign");

    TestCertificates out;
    out.caPem = ca.pem();
    out.serverCertPem = server.pem();
    out.serverKeyPem = serverKey.pem();
    out.caFile = writeCaFile(out.caPem, (std::string(label) + "-ca.pem").c_str());
    return out;
}

}  // namespace

const TestCertificates& TestCertificates::trusted() {
    static const TestCertificates certs = make("trusted", 1000);
    return certs;
}

const TestCertificates& TestCertificates::untrusted() {
    static const TestCertificates certs = make("untrusted", 2000);
    return certs;
}

}  // namespace orvex_test

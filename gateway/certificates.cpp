#include "gateway/certificates.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace tav {
namespace gateway {

namespace {

template <auto Free>
struct Deleter {
    template <class T>
    void operator()(T * p) const {
        Free(p);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using BigNumber = std::unique_ptr<BIGNUM, Deleter<BN_free>>;

constexpr long one_hour = 60L * 60L;
constexpr long ten_years = 10L * 365L * 24L * one_hour;

void require(bool ok, char const * what) {
    if (ok) {
        return;
    }
    char reason[256] = "no reason given";
    if (unsigned long const code = ERR_get_error()) {
        ERR_error_string_n(code, reason, sizeof reason);
    }
    throw std::runtime_error(std::string("can't make certificates: ") + what + ": " + reason);
}

Key makeKey() {
    KeyContext const context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) > 0 &&
                EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), 2048) > 0,
            "key generator");
    EVP_PKEY * key = nullptr;
    require(EVP_PKEY_keygen(context.get(), &key) > 0, "key");
    return Key(key);
}

void addExtension(X509 * certificate, X509 * issuer, int id, char const * value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    Extension const extension(X509V3_EXT_conf_nid(nullptr, &context, id, value));
    require(extension && X509_add_ext(certificate, extension.get(), -1) > 0, value);
}

/// A server's if `names` are given, else a client's; an authority's own without an issuer.
Certificate makeCertificate(EVP_PKEY * key, char const * name, char const * names, X509 * issuer,
                            EVP_PKEY * issuerKey) {
    Certificate certificate(X509_new());
    require(certificate != nullptr, "certificate");
    X509 * const x = certificate.get();

    BigNumber const serial(BN_new());
    require(serial && BN_rand(serial.get(), 64, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) > 0 &&
                BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x)) != nullptr,
            "serial number");
    X509_NAME * const subject = X509_get_subject_name(x);
    require(X509_set_version(x, 2) > 0 && X509_gmtime_adj(X509_getm_notBefore(x), -one_hour) &&
                X509_gmtime_adj(X509_getm_notAfter(x), ten_years) && X509_set_pubkey(x, key) > 0 &&
                X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                           reinterpret_cast<unsigned char const *>(name), -1, -1, 0) > 0 &&
                X509_set_issuer_name(x, issuer ? X509_get_subject_name(issuer) : subject) > 0,
            name);
    if (issuer) {
        addExtension(x, issuer, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(x, issuer, NID_key_usage, "critical,digitalSignature,keyEncipherment");
        addExtension(x, issuer, NID_ext_key_usage, names ? "serverAuth" : "clientAuth");
        if (names) {
            addExtension(x, issuer, NID_subject_alt_name, names);
        }
    } else {
        addExtension(x, x, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(x, x, NID_key_usage, "critical,keyCertSign,cRLSign");
    }
    addExtension(x, issuer ? issuer : x, NID_subject_key_identifier, "hash");
    require(X509_sign(x, issuerKey, EVP_sha256()) > 0, "signature");
    return certificate;
}

std::string text(BIO * bio) {
    char * data = nullptr;
    long const size = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::string pem(X509 * certificate) {
    Bio const bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_X509(bio.get(), certificate) > 0, "certificate text");
    return text(bio.get());
}

std::string pem(EVP_PKEY * key) {
    Bio const bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) > 0,
            "key text");
    return text(bio.get());
}

void writeFile(std::string const & path, std::string const & content, mode_t mode) {
    int const file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    bool ok = file >= 0;
    std::size_t done = 0;
    while (ok && done < content.size()) {
        ssize_t const n = ::write(file, content.data() + done, content.size() - done);
        ok = n > 0;
        done += ok ? static_cast<std::size_t>(n) : 0u;
    }
    int const error = errno;
    if (file >= 0) {
        ok = ::close(file) == 0 && ok;
    }
    if (!ok) {
        throw std::runtime_error("can't write " + path + ": " + std::generic_category().message(error));
    }
}

} // namespace

Certificates makeCertificates() {
    Key const caKey = makeKey();
    Certificate const ca =
        makeCertificate(caKey.get(), "Development gateway CA", nullptr, nullptr, caKey.get());
    Key const key = makeKey();
    Certificate const server =
        makeCertificate(key.get(), "localhost", "DNS:localhost,IP:127.0.0.1,IP:::1", ca.get(), caKey.get());
    Key const clientKey = makeKey();
    Certificate const client =
        makeCertificate(clientKey.get(), "Development client", nullptr, ca.get(), caKey.get());
    return Certificates{pem(ca.get()), pem(server.get()) + pem(ca.get()), pem(key.get()), pem(client.get()),
                        pem(clientKey.get())};
}

std::string caFile(std::string const & folder) {
    return folder + "/ca.pem";
}
std::string chainFile(std::string const & folder) {
    return folder + "/server.pem";
}
std::string keyFile(std::string const & folder) {
    return folder + "/server.key";
}
std::string clientFile(std::string const & folder) {
    return folder + "/client.pem";
}
std::string clientKeyFile(std::string const & folder) {
    return folder + "/client.key";
}

void ensureCertificates(std::string const & folder) {
    namespace fs = std::filesystem;
    std::string const files[] = {caFile(folder), chainFile(folder), keyFile(folder)};
    unsigned present = 0;
    for (std::string const & file : files) {
        present += fs::exists(file) ? 1u : 0u;
    }
    if (present == 3) {
        return;
    }
    if (present > 0) {
        for (std::string const & file : files) {
            if (!fs::exists(file)) {
                throw std::runtime_error("certificate folder " + folder + " is incomplete: " + file +
                                         " is missing");
            }
        }
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::runtime_error("can't make the certificate folder " + folder + ": " + error.message());
    }
    Certificates const made = makeCertificates();
    writeFile(keyFile(folder), made.key, 0600);
    writeFile(chainFile(folder), made.chain, 0644);
    writeFile(clientKeyFile(folder), made.client_key, 0600);
    writeFile(clientFile(folder), made.client, 0644);
    writeFile(caFile(folder), made.ca, 0644);
}

} // namespace gateway
} // namespace tav

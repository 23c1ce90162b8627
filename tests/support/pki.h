#ifndef TAV_TESTS_SUPPORT_PKI_H
#define TAV_TESTS_SUPPORT_PKI_H

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>
#include <string>

/// Certificates of every kind, good and bad, made on the spot.
namespace tav_test {

/// What a certificate is to say.  Times are seconds from the present.
struct CertificateSpec {
    std::string name = "localhost";
    /// The alternative names in OpenSSL's form; empty for none.
    std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    long from = -3600;
    long to = 24 * 3600;
    /// The extended usage; empty for none.
    std::string purpose = "serverAuth";
    bool authority = false;
    /// 0 for an elliptic curve key.
    int rsa_bits = 0;

    CertificateSpec & named(std::string v) { return name = std::move(v), *this; }
    CertificateSpec & withNames(std::string v) { return names = std::move(v), *this; }
    CertificateSpec & valid(long first, long last) { return from = first, to = last, *this; }
    CertificateSpec & forPurpose(std::string v) { return purpose = std::move(v), *this; }
    CertificateSpec & withRsa(int bits) { return rsa_bits = bits, *this; }
    static CertificateSpec ca(std::string v) {
        CertificateSpec out;
        out.name = std::move(v);
        out.names.clear();
        out.purpose.clear();
        out.authority = true;
        return out;
    }
};

/// A certificate with its key.
class Identity {
public:
    /// Signed by `issuer`, or by itself.
    explicit Identity(CertificateSpec const & spec, Identity const * issuer = nullptr)
        : key_(makeKey(spec.rsa_bits)), certificate_(X509_new(), X509_free) {
        X509 * const x = certificate_.get();
        EVP_PKEY * const signer = issuer != nullptr ? issuer->key_.get() : key_.get();
        X509 * const parent = issuer != nullptr ? issuer->certificate_.get() : x;
        std::unique_ptr<BIGNUM, void (*)(BIGNUM *)> const serial(BN_new(), BN_free);
        require(BN_rand(serial.get(), 64, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) > 0, "serial");
        BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x));
        X509_set_version(x, 2);
        X509_gmtime_adj(X509_getm_notBefore(x), spec.from);
        X509_gmtime_adj(X509_getm_notAfter(x), spec.to);
        X509_set_pubkey(x, key_.get());
        X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_UTF8,
                                   reinterpret_cast<unsigned char const *>(spec.name.data()),
                                   static_cast<int>(spec.name.size()), -1, 0);
        X509_set_issuer_name(x, X509_get_subject_name(parent));
        extend(parent, NID_basic_constraints, spec.authority ? "critical,CA:TRUE" : "critical,CA:FALSE");
        extend(parent, NID_subject_key_identifier, "hash");
        if (issuer != nullptr) {
            extend(parent, NID_authority_key_identifier, "keyid");
        }
        if (!spec.purpose.empty()) {
            extend(parent, NID_ext_key_usage, spec.purpose);
        }
        if (!spec.names.empty()) {
            extend(parent, NID_subject_alt_name, spec.names);
        }
        require(X509_sign(x, signer, EVP_sha256()) > 0, "signature");
    }

    X509 * certificate() const { return certificate_.get(); }
    EVP_PKEY * key() const { return key_.get(); }

    std::string pem() const {
        return text([&](BIO * out) { return PEM_write_bio_X509(out, certificate_.get()); });
    }
    /// In the clear, or encrypted.
    std::string keyPem(std::string const & phrase = "") const {
        // OpenSSL 1.1.1 asks for what it does not write to.
        return text([&](BIO * out) {
            return PEM_write_bio_PKCS8PrivateKey(
                out, key_.get(), phrase.empty() ? nullptr : EVP_aes_128_cbc(),
                const_cast<char *>(phrase.data()), static_cast<int>(phrase.size()), nullptr, nullptr);
        });
    }
    /// Encrypted in the form that begins with its own head lines.
    std::string oldKeyPem(std::string const & phrase) const {
        return text([&](BIO * out) {
            return PEM_write_bio_PrivateKey_traditional(
                out, key_.get(), EVP_aes_128_cbc(),
                reinterpret_cast<unsigned char *>(const_cast<char *>(phrase.data())),
                static_cast<int>(phrase.size()), nullptr, nullptr);
        });
    }

    /// A revocation list of this authority, in force from `from` to `to` seconds from the present.
    std::string revocationList(X509 const * revoked = nullptr, long from = -3600, long to = 24 * 3600) const {
        std::unique_ptr<X509_CRL, void (*)(X509_CRL *)> const list(X509_CRL_new(), X509_CRL_free);
        std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME *)> const first(X509_gmtime_adj(nullptr, from),
                                                                      ASN1_TIME_free);
        std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME *)> const last(X509_gmtime_adj(nullptr, to),
                                                                     ASN1_TIME_free);
        X509_CRL_set_version(list.get(), 1);
        X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(certificate_.get()));
        X509_CRL_set1_lastUpdate(list.get(), first.get());
        X509_CRL_set1_nextUpdate(list.get(), last.get());
        if (revoked != nullptr) {
            X509_REVOKED * const entry = X509_REVOKED_new();
            X509_REVOKED_set_serialNumber(entry, const_cast<ASN1_INTEGER *>(X509_get0_serialNumber(revoked)));
            X509_REVOKED_set_revocationDate(entry, first.get());
            require(X509_CRL_add0_revoked(list.get(), entry) > 0, "revocation");
        }
        X509_CRL_sort(list.get());
        require(X509_CRL_sign(list.get(), key_.get(), EVP_sha256()) > 0, "list");
        return text([&](BIO * out) { return PEM_write_bio_X509_CRL(out, list.get()); });
    }

private:
    using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;

    static void require(bool ok, char const * what) {
        if (!ok) {
            throw std::runtime_error(std::string("test certificate: ") + what);
        }
    }

    static Key makeKey(int rsa_bits) {
        EVP_PKEY * made = nullptr;
        EVP_PKEY_CTX * const maker = EVP_PKEY_CTX_new_id(rsa_bits != 0 ? EVP_PKEY_RSA : EVP_PKEY_EC, nullptr);
        bool ok = maker != nullptr && EVP_PKEY_keygen_init(maker) > 0;
        ok = ok && (rsa_bits != 0 ? EVP_PKEY_CTX_set_rsa_keygen_bits(maker, rsa_bits)
                                  : EVP_PKEY_CTX_set_ec_paramgen_curve_nid(maker, NID_X9_62_prime256v1)) > 0;
        ok = ok && EVP_PKEY_keygen(maker, &made) > 0;
        EVP_PKEY_CTX_free(maker);
        require(ok, "key");
        return Key(made, EVP_PKEY_free);
    }

    void extend(X509 * parent, int id, std::string const & value) {
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, parent, certificate_.get(), nullptr, nullptr, 0);
        X509_EXTENSION * const extension = X509V3_EXT_conf_nid(nullptr, &ctx, id, value.c_str());
        bool const ok = extension != nullptr && X509_add_ext(certificate_.get(), extension, -1) > 0;
        X509_EXTENSION_free(extension);
        require(ok, value.c_str());
    }

    template <class Write>
    static std::string text(Write const & write) {
        std::unique_ptr<BIO, int (*)(BIO *)> const out(BIO_new(BIO_s_mem()), BIO_free);
        require(write(out.get()) > 0, "text");
        char * data = nullptr;
        long const size = BIO_get_mem_data(out.get(), &data);
        return std::string(data, static_cast<std::size_t>(size));
    }

    Key key_;
    std::unique_ptr<X509, void (*)(X509 *)> certificate_;
};

/// A root, an authority below it and another root that nobody trusts, made once.
struct Pki {
    Identity root{CertificateSpec::ca("Test Root")};
    Identity middle{CertificateSpec::ca("Test Middle"), &root};
    Identity stranger{CertificateSpec::ca("Strange Root")};

    static Pki const & the() {
        static Pki const made;
        return made;
    }
};

} // namespace tav_test

#endif

#include "client/peer_report.h"

#include <asio/ip/address.hpp>

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr long long ms_per_second = 1000;
constexpr long long seconds_per_day = 24LL * 60 * 60;

using Text = std::unique_ptr<BIO, int (*)(BIO *)>;
using Time = std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME *)>;
using Names = std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES *)>;

void append_hex(std::string & out, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    out += digits[byte >> 4];
    out += digits[byte & 15];
}

std::string name_text(X509_NAME const * name) {
    Text const out(::BIO_new(::BIO_s_mem()), ::BIO_free);
    if (!out || name == nullptr || ::X509_NAME_print_ex(out.get(), name, 0, XN_FLAG_RFC2253) < 0) {
        return std::string();
    }
    char const * data = nullptr;
    long const size = ::BIO_get_mem_data(out.get(), &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

tavTime time_of(ASN1_TIME const * time) {
    Time const epoch(::ASN1_TIME_set(nullptr, 0), ::ASN1_TIME_free);
    int days = 0;
    int seconds = 0;
    if (!epoch || time == nullptr || ::ASN1_TIME_diff(&days, &seconds, epoch.get(), time) != 1) {
        return tavTime();
    }
    return tavTime::milliseconds((days * seconds_per_day + seconds) * ms_per_second);
}

std::string fingerprint_of(X509 const * certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned size = 0;
    std::string out;
    if (::X509_digest(certificate, ::EVP_sha256(), digest.data(), &size) == 1) {
        for (unsigned i = 0; i < size; ++i) {
            append_hex(out, digest[i]);
        }
    }
    return out;
}

std::string shown(std::string_view name) {
    std::string out;
    for (char const c : name) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7f && byte != '\\') {
            out += c;
        } else {
            out += '\\';
            append_hex(out, byte);
        }
    }
    return out;
}

template <class Address>
std::string address_text(unsigned char const * bytes) {
    typename Address::bytes_type raw;
    std::copy_n(bytes, raw.size(), raw.begin());
    return Address(raw).to_string();
}

/// The text of an alternative name; empty for a kind that no connection is checked against.
std::string text_of(GENERAL_NAME const * name) {
    int kind = 0;
    auto const * const value = static_cast<ASN1_STRING const *>(::GENERAL_NAME_get0_value(name, &kind));
    if (kind != GEN_DNS && kind != GEN_IPADD) {
        return std::string();
    }
    unsigned char const * const bytes = ::ASN1_STRING_get0_data(value);
    auto const size = static_cast<std::size_t>(::ASN1_STRING_length(value));
    if (kind == GEN_DNS) {
        return shown(std::string_view(reinterpret_cast<char const *>(bytes), size));
    }
    if (size == std::tuple_size<asio::ip::address_v4::bytes_type>::value) {
        return address_text<asio::ip::address_v4>(bytes);
    }
    if (size == std::tuple_size<asio::ip::address_v6::bytes_type>::value) {
        return address_text<asio::ip::address_v6>(bytes);
    }
    return std::string();
}

std::vector<std::string> names_of(X509 const * certificate) {
    Names const all(
        static_cast<GENERAL_NAMES *>(::X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
        ::GENERAL_NAMES_free);
    std::vector<std::string> out;
    for (int i = 0; all && i < sk_GENERAL_NAME_num(all.get()); ++i) {
        std::string text = text_of(sk_GENERAL_NAME_value(all.get(), i));
        if (!text.empty()) {
            out.push_back(std::move(text));
        }
    }
    return out;
}

} // namespace

peer_certificate describe(X509 * certificate) {
    peer_certificate out;
    out.subject = name_text(::X509_get_subject_name(certificate));
    out.issuer = name_text(::X509_get_issuer_name(certificate));
    out.names = names_of(certificate);
    out.valid_from = time_of(::X509_get0_notBefore(certificate));
    out.valid_to = time_of(::X509_get0_notAfter(certificate));
    out.fingerprint = fingerprint_of(certificate);
    return out;
}

tls_report report_of(SSL * handle, bool verified) {
    tls_report out;
    out.version = ::SSL_get_version(handle);
    out.cipher = ::SSL_get_cipher_name(handle);
    unsigned char const * protocol = nullptr;
    unsigned size = 0;
    ::SSL_get0_alpn_selected(handle, &protocol, &size);
    if (size > 0) {
        out.alpn.assign(reinterpret_cast<char const *>(protocol), size);
    }
    STACK_OF(X509) * const chain = ::SSL_get_peer_cert_chain(handle);
    for (int i = 0; chain != nullptr && i < sk_X509_num(chain); ++i) {
        out.chain.push_back(describe(sk_X509_value(chain, i)));
    }
    out.verified = verified;
    if (char const * const name = ::SSL_get0_peername(handle)) {
        out.matched_name = shown(name);
    }
    long const result = ::SSL_get_verify_result(handle);
    out.verify_result = static_cast<int>(result);
    out.verify_text = ::X509_verify_cert_error_string(result);
    return out;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav

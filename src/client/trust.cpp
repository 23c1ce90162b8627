#include "client/trust.h"

#include "foundation/platform.h"

#include <asio/ssl/error.hpp>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr std::string_view folder_entry_end = ".0";

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// What a file is by now, or why that can't be told.
std::string state_of(std::string const & path) {
    std::string state = path + ' ';
    if (std::error_code const ec = platform::fileState(path, state)) {
        state += ec.message();
    }
    return state + '\n';
}

certificate_path look_at_folder(std::string const & folder) {
    certificate_path out;
    std::vector<std::string> names;
    if (std::error_code const ec = platform::listFolder(folder + "/", names)) {
        out.trouble = ec.message();
        out.state = out.trouble;
        return out;
    }
    std::vector<std::string> states;
    for (std::string const & name : names) {
        std::string const path = folder + "/" + name;
        if (ends_with(name, folder_entry_end) && !platform::isFolder(path)) {
            out.files.push_back(path);
            states.push_back(state_of(path));
        }
    }
    if (out.files.empty()) {
        out.trouble = "nothing in it: no file whose name ends in \".0\"";
    }
    std::sort(states.begin(), states.end());
    for (std::string const & each : states) {
        out.state += each;
    }
    return out;
}

std::string name_text(X509_NAME const * name) {
    char text[256] = "";
    if (name != nullptr) {
        ::X509_NAME_oneline(name, text, sizeof text);
    }
    return text;
}

std::string time_text(ASN1_TIME const * time) {
    std::unique_ptr<BIO, int (*)(BIO *)> const out(::BIO_new(::BIO_s_mem()), ::BIO_free);
    if (!out || time == nullptr || ::ASN1_TIME_print(out.get(), time) != 1) {
        return "unknown";
    }
    char const * data = nullptr;
    long const size = ::BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

} // namespace

certificate_path look_at_certificates(std::string const & path) {
    if (!path.empty() && path.back() == '/') {
        return look_at_folder(path.substr(0, path.size() - 1));
    }
    certificate_path out;
    if (path.empty()) {
        return out;
    }
    out.files.push_back(path);
    out.state = state_of(path);
    return out;
}

std::error_code want_of(std::error_code const & told) noexcept {
    // Some releases tell the system's reason as such, others as a code of their own that holds it.
    int reason = told.value();
    if (told.category() == asio::error::get_ssl_category()) {
        auto const code = static_cast<unsigned>(reason);
        if (ERR_GET_LIB(code) == ERR_LIB_SYS) {
            reason = static_cast<int>(ERR_GET_REASON(code));
        } else {
            reason = ERR_GET_REASON(code) == ERR_R_MALLOC_FAILURE ? ENOMEM : 0;
        }
    }
    std::error_code const system(reason, std::generic_category());
    for (std::errc const want : {std::errc::too_many_files_open, std::errc::too_many_files_open_in_system,
                                 std::errc::not_enough_memory, std::errc::interrupted,
                                 std::errc::resource_unavailable_try_again, std::errc::io_error}) {
        if (system == want) {
            return system;
        }
    }
    return std::error_code();
}

std::string certificate_trouble(std::string const & file, std::string const & told) {
    if (std::error_code const ec = platform::tryReading(file)) {
        return ec.message();
    }
    return platform::isFolder(file) ? "it is a folder, and its path has no \"/\" at the end"
                                    : "no certificate in it: " + told;
}

void describe_refusal(X509_STORE_CTX * verification, certificate_refusal & out) {
    int const error = ::X509_STORE_CTX_get_error(verification);
    out.wrong_name = error == X509_V_ERR_HOSTNAME_MISMATCH || error == X509_V_ERR_IP_ADDRESS_MISMATCH;
    out.reason = ::X509_verify_cert_error_string(error);
    out.subject = subject_of(verification);
    out.details = out.reason + ", depth " + std::to_string(::X509_STORE_CTX_get_error_depth(verification)) +
                  ", subject " + out.subject;
    if (X509 const * const refused = ::X509_STORE_CTX_get_current_cert(verification)) {
        out.details += ", issuer " + name_text(::X509_get_issuer_name(refused)) + ", valid from " +
                       time_text(::X509_get0_notBefore(refused)) + " to " +
                       time_text(::X509_get0_notAfter(refused));
    }
}

std::string subject_of(X509_STORE_CTX * verification) {
    X509 const * const certificate = ::X509_STORE_CTX_get_current_cert(verification);
    return name_text(certificate != nullptr ? ::X509_get_subject_name(certificate) : nullptr);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav

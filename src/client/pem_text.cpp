#include "client/pem_text.h"

#include "client/pem_keys.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// More than any list of revoked certificates in use.
constexpr std::uintmax_t most_bytes = 64u << 20;

using Bio = std::unique_ptr<BIO, int (*)(BIO *)>;

Bio reader_of(std::string const & text) {
    return Bio(::BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), ::BIO_free);
}

void wipe(std::string & text) {
    if (!text.empty()) {
        ::OPENSSL_cleanse(&text[0], text.size());
    }
}

/// What the reading of a key asks and gets to know.
struct phrase_call {
    explicit phrase_call(std::function<std::string()> const & f) : password(f) {}

    std::function<std::string()> const & password;
    bool asked = false;
    bool too_long = false;
    /// What the function threw; empty if it did not.
    std::string thrown;
};

// Without it the library would ask at the terminal.
int no_phrase(char *, int, int, void *) {
    return -1;
}

int give_phrase(char * out, int size, int, void * data) {
    phrase_call & phrase = *static_cast<phrase_call *>(data);
    bool const again = std::exchange(phrase.asked, true);
    if (again || !phrase.password) {
        return -1;
    }
    try {
        std::string text = phrase.password();
        int const length =
            static_cast<int>(std::min<std::size_t>(text.size(), std::numeric_limits<int>::max()));
        phrase.too_long = length > size;
        if (!phrase.too_long) {
            std::copy(text.begin(), text.end(), out);
        }
        wipe(text);
        return phrase.too_long ? -1 : length;
    } catch (std::exception const & e) {
        phrase.thrown = std::string(" threw: ") + e.what();
    } catch (...) {
        phrase.thrown = " threw";
    }
    return -1;
}

} // namespace

std::string openssl_reason(char const * otherwise) {
    char const * const reason = ::ERR_reason_error_string(::ERR_peek_last_error());
    std::string out = reason != nullptr ? reason : otherwise;
    ::ERR_clear_error();
    return out;
}

pem_text::pem_text(std::string label, std::string text) : label_(std::move(label)), text_(std::move(text)) {
    if (text_.size() > most_bytes) {
        fail("too long");
    }
}

pem_text pem_text::of_file(std::string const & label, std::string const & path) {
    namespace fs = std::filesystem;
    pem_text out(label + " " + path, std::string());
    std::error_code ec;
    fs::file_status const status = fs::status(path, ec);
    if (!fs::exists(status)) {
        out.fail((ec ? ec : std::make_error_code(std::errc::no_such_file_or_directory)).message());
    }
    if (!fs::is_regular_file(status)) {
        out.fail("it is no file");
    }
    std::uintmax_t const size = fs::file_size(path, ec);
    if (!ec && size > most_bytes) {
        out.fail("too long");
    }
    errno = 0;
    // Without a buffer of its own, which nobody would wipe.
    std::ifstream in;
    in.rdbuf()->pubsetbuf(nullptr, 0);
    in.open(path, std::ios::binary);
    out.text_.resize(ec ? 0 : static_cast<std::size_t>(size));
    if (!in || (!out.text_.empty() && !in.read(&out.text_[0], static_cast<std::streamsize>(size)))) {
        out.fail(errno != 0 ? std::generic_category().message(errno) : "it can't be read");
    }
    return out;
}

pem_text::~pem_text() {
    wipe(text_);
}

// A short text stays behind in what it is moved from.
pem_text::pem_text(pem_text && other) noexcept
    : label_(std::move(other.label_)), text_(std::move(other.text_)) {
    wipe(other.text_);
}

void pem_text::fail(std::string const & why) const {
    throw std::runtime_error(label_ + ": " + why);
}

template <class Item, class Read>
std::vector<Item> pem_text::all(Read const & read, char const * what) const {
    std::vector<Item> out;
    std::string const text = without_keys(text_);
    Bio const in = reader_of(text);
    ::ERR_clear_error();
    while (Item next = read(in.get())) {
        out.push_back(std::move(next));
    }
    bool const at_end = ERR_GET_LIB(::ERR_peek_last_error()) == ERR_LIB_PEM &&
                        ERR_GET_REASON(::ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    std::string const reason = openssl_reason("it can't be read");
    if (!at_end) {
        fail(std::string("bad ") + what + ": " + reason);
    }
    if (out.empty()) {
        fail(std::string("no ") + what + " in it");
    }
    return out;
}

std::vector<pem_text::certificate> pem_text::certificates() const {
    return all<certificate>(
        [](BIO * in) {
            return certificate(::PEM_read_bio_X509_AUX(in, nullptr, no_phrase, nullptr), ::X509_free);
        },
        "certificate");
}

std::vector<pem_text::revocation_list> pem_text::revocation_lists() const {
    return all<revocation_list>(
        [](BIO * in) {
            return revocation_list(::PEM_read_bio_X509_CRL(in, nullptr, no_phrase, nullptr), ::X509_CRL_free);
        },
        "revocation list");
}

pem_text::private_key pem_text::key(std::function<std::string()> const & password) const {
    Bio const in = reader_of(text_);
    phrase_call phrase(password);
    ::ERR_clear_error();
    private_key out(::PEM_read_bio_PrivateKey(in.get(), nullptr, give_phrase, &phrase), ::EVP_PKEY_free);
    std::string const reason = openssl_reason("it can't be read");
    if (out) {
        return out;
    }
    if (!phrase.thrown.empty()) {
        fail("key_password" + phrase.thrown);
    }
    if (text_.find("PRIVATE KEY-----") == std::string::npos) {
        fail("no private key in it");
    }
    if (phrase.too_long) {
        fail("the pass phrase is too long");
    }
    if (phrase.asked) {
        fail(password ? "the pass phrase is wrong" : "it is encrypted, and no key_password is given");
    }
    fail("bad private key: " + reason);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav

#include "client/pem_text.h"

#include "support/client_rig.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>
#include <string>
#include <string_view>

using tav::tls::impl::pem_text;

namespace {

constexpr char secret[] = "the secret half of a key";

std::atomic<bool> watching{false};
std::atomic<unsigned> found{0};
/// What is looked for, beside the secret above.
std::string_view searched;

bool holds(void const * p, std::string_view what) noexcept {
    return !what.empty() &&
           ::memmem(p, ::malloc_usable_size(const_cast<void *>(p)), what.data(), what.size()) != nullptr;
}

void freeWatched(void * p) noexcept {
    if (p != nullptr && watching &&
        (holds(p, std::string_view(secret, sizeof secret - 1)) || holds(p, searched))) {
        ++found;
    }
    std::free(p);
}

// The TLS library's own memory too, from before it has any.
bool const tlsMemoryIsWatched =
    ::CRYPTO_set_mem_functions(
        [](std::size_t size, char const *, int) { return std::malloc(size); },
        [](void * p, std::size_t size, char const *, int) { return std::realloc(p, size); },
        [](void * p, char const *, int) { freeWatched(p); }) == 1;

} // namespace

void * operator new(std::size_t size) {
    if (void * const p = std::calloc(1, size != 0 ? size : 1)) {
        return p;
    }
    throw std::bad_alloc();
}
void * operator new[](std::size_t size) {
    return ::operator new(size);
}
void operator delete(void * p) noexcept {
    freeWatched(p);
}
void operator delete[](void * p) noexcept {
    freeWatched(p);
}
void operator delete(void * p, std::size_t) noexcept {
    freeWatched(p);
}
void operator delete[](void * p, std::size_t) noexcept {
    freeWatched(p);
}

TEST(PemMemory, FileThatWasReadIsInNoFreedBlock) {
    tav_test::TempFile const file(std::string("-----BEGIN\n") + secret + std::string(1000, 'x') +
                                  "\n-----END\n");
    watching = true;
    { pem_text const text = pem_text::of_file("key_file", file.path()); }
    watching = false;
    EXPECT_EQ(found.exchange(0), 0u);
    watching = true;
    { std::string const left = std::string(1000, '.') + secret; }
    watching = false;
    EXPECT_GE(found.exchange(0), 1u) << "what is left would be seen";
}

TEST(PemMemory, KeyBesideACertificateIsInNoFreedBlockOfItsReading) {
    ASSERT_TRUE(tlsMemoryIsWatched);
    tav_test::TlsIdentity const & own = tav_test::TlsIdentity::ecdsa();
    std::string const both = own.chain + own.key + own.ca;
    std::size_t const begin = own.key.find('\n');
    tavBytes const key{tav_base64(tav_istr(own.key.substr(begin, own.key.find("-----END") - begin)))};
    ASSERT_GT(key.size(), 60u);
    searched = std::string_view(reinterpret_cast<char const *>(key.data()) + 36, 24); // Of the number itself.
    pem_text const text("certificate_pem", both);
    watching = true;
    std::size_t const read = text.certificates().size();
    watching = false;
    EXPECT_EQ(found.exchange(0), 0u);
    EXPECT_EQ(read, 2u) << "what stands behind the key is read too";
    watching = true;
    {
        std::unique_ptr<BIO, int (*)(BIO *)> const in(::BIO_new_mem_buf(both.data(), -1), ::BIO_free);
        for (X509 * x = nullptr;
             (x = ::PEM_read_bio_X509_AUX(in.get(), nullptr, nullptr, nullptr)) != nullptr;) {
            ::X509_free(x);
        }
    }
    watching = false;
    searched = std::string_view();
    EXPECT_GE(found.exchange(0), 1u) << "what is left would be seen";
}

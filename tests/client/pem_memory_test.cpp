#include "client/pem_text.h"

#include "support/client_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>
#include <string>

using tav::tls::impl::pem_text;

namespace {

constexpr char secret[] = "the secret half of a key";

std::atomic<bool> watching{false};
std::atomic<unsigned> found{0};

void freeWatched(void * p) noexcept {
    if (p != nullptr && watching &&
        ::memmem(p, ::malloc_usable_size(p), secret, sizeof secret - 1) != nullptr) {
        ++found;
    }
    std::free(p);
}

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

#ifndef TAV_FORMATS_XML_XML_OUTPUT_H
#define TAV_FORMATS_XML_XML_OUTPUT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

/// A text that is written piece by piece.  Internal.
namespace tav {
namespace xml {
namespace detail {

/// Appends to a string, which is whole again when this ends.
class Output {
public:
    explicit Output(std::string & text) : text_(text), at_(&text[0] + text.size()), end_(at_) {}
    Output(Output const &) = delete;
    Output & operator=(Output const &) = delete;
    ~Output() { text_.resize(used()); }

    void put(char c) { *take(1) = c; }

    void put(std::string_view text) { copy(take(text.size()), text); }

    /// `before`, the text and `behind`, at once.
    void put(std::string_view before, std::string_view text, std::string_view behind) {
        char * const to = take(before.size() + text.size() + behind.size());
        copy(copy(copy(to, before), text), behind);
    }

    void fill(std::size_t count, char c) { std::memset(take(count), c, count); }

private:
    std::size_t used() const noexcept { return static_cast<std::size_t>(at_ - text_.data()); }

    /// Places for so many bytes.
    char * take(std::size_t size) {
        if (static_cast<std::size_t>(end_ - at_) < size) {
            grow(size);
        }
        char * const to = at_;
        at_ += size;
        return to;
    }

    static char * copy(char * to, std::string_view text) noexcept {
        if (!text.empty()) {
            std::memcpy(to, text.data(), text.size());
        }
        return to + text.size();
    }

    [[gnu::noinline]] void grow(std::size_t size) {
        // A string zeroes what it grows by: a piece at a time, which is still at hand when it is written.
        constexpr std::size_t piece = 8192;
        std::size_t const before = used();
        if (size > text_.max_size() - before) {
            text_.resize(std::string::npos);
        }
        if (before + size > text_.capacity()) {
            text_.reserve(std::max(before + size, std::min(text_.capacity() * 2, text_.max_size())));
        }
        text_.resize(std::min(text_.capacity(), before + std::max(size, piece)));
        at_ = &text_[0] + before;
        end_ = &text_[0] + text_.size();
    }

    std::string & text_;
    char * at_;
    char * end_;
};

} // namespace detail
} // namespace xml
} // namespace tav

#endif

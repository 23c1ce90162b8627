#ifndef TAV_CLIENT_ONE_LINE_H
#define TAV_CLIENT_ONE_LINE_H

#include <ios>
#include <ostream>
#include <streambuf>
#include <utility>

namespace tav {
namespace tls {

/// Hands on what is printed as one line.  What would end it, or steer the terminal of who reads it, is shown
/// by its number, "\x0A" for a line feed.  Internal.
class one_line final : public std::streambuf {
public:
    explicit one_line(std::streambuf & to) : to_(to) {}

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) {
            return traits_type::not_eof(c);
        }
        char const one = traits_type::to_char_type(c);
        return xsputn(&one, 1) == 1 ? c : traits_type::eof();
    }
    std::streamsize xsputn(char const * text, std::streamsize size) override {
        std::streamsize done = 0;
        while (done < size) {
            std::streamsize plain = done;
            while (plain < size && !is_control(text[plain])) {
                ++plain;
            }
            if (to_.sputn(text + done, plain - done) != plain - done) {
                return done;
            }
            done = plain;
            if (done < size && !show(text[done++])) {
                return done - 1;
            }
        }
        return size;
    }
    pos_type seekoff(off_type off, std::ios_base::seekdir way, std::ios_base::openmode which) override {
        return to_.pubseekoff(off, way, which);
    }

private:
    static bool is_control(char c) noexcept {
        auto const v = static_cast<unsigned char>(c);
        return v < 0x20 || v == 0x7f;
    }
    bool show(char c) {
        static constexpr char digits[] = "0123456789ABCDEF";
        auto const v = static_cast<unsigned char>(c);
        char const shown[] = {'\\', 'x', digits[v >> 4], digits[v & 15]};
        return to_.sputn(shown, sizeof shown) == sizeof shown;
    }

    std::streambuf & to_;
};

/// The same of all that `print` prints.
template <class Print>
auto in_one_line(Print print) {
    return [print = std::move(print)](std::ostream & out) {
        one_line shown(*out.rdbuf());
        std::ostream line(&shown);
        print(line);
        out.setstate(line.rdstate());
    };
}

} // namespace tls
} // namespace tav

#endif

#ifndef TAV_KIT_EQUAL_H
#define TAV_KIT_EQUAL_H

#include "tav/vinta/vinta_object.h"

#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <utility>

namespace tav {
namespace kit {
namespace detail {

/// What a walk over fields gives, for comparing: two objects have one image if and only if their fields are
/// equal.  Entries of maps are put in the order of their keys.
class field_image : public tavNullStream {
public:
    using tavNullStream::io;

    static std::string of(tavObject const & v) {
        field_image image;
        // The walk takes objects without const, as it may fill them; on an output stream it only reads.
        const_cast<tavObject &>(v).io(image);
        std::string out;
        image.append(out);
        return out;
    }

    bool isMapEntryCombined() const override { return true; }
    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override {
        std::string key = std::to_string(id) + ' ';
        key.append(std::string(name));
        return add(std::move(key));
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override { return add(std::string()); }
    void enter(tav_istr className, tav_istr) override { put('c', className); }
    void writeNull() override { value_ += 'n'; }

    void io(tavTime & v, tavCodecMeta const &) override { put(v.milliseconds()); }
    void io(tavBytes & v, tavCodecMeta const &) override { put('b', tav_istr(v.data(), v.size())); }
    void io(tavString & v, tavCodecMeta const &) override { put('s', tav_istr(v)); }
    // Both zeros are one.
    void io(double & v, tavCodecMeta const &) override { put(v == 0 ? 0.0 : v); }
    void io(float & v, tavCodecMeta const &) override { put(v == 0 ? 0.0f : v); }
    void io(unsigned long long & v, tavCodecMeta const &) override { put(v); }
    void io(long long & v, tavCodecMeta const &) override { put(v); }
    void io(unsigned long & v, tavCodecMeta const &) override { put(v); }
    void io(long & v, tavCodecMeta const &) override { put(v); }
    void io(unsigned int & v, tavCodecMeta const &) override { put(v); }
    void io(int & v, tavCodecMeta const &) override { put(v); }
    void io(unsigned short & v, tavCodecMeta const &) override { put(v); }
    void io(short & v, tavCodecMeta const &) override { put(v); }
    void io(unsigned char & v, tavCodecMeta const &) override { put(v); }
    void io(char & v, tavCodecMeta const &) override { put(v); }
    void io(bool & v, tavCodecMeta const &) override { put(v); }

private:
    tavSharedPtr<tavCodecStream> add(std::string key) {
        // At the end of those with the same key.
        return children_.emplace(std::move(key), new field_image)->second;
    }

    template <class T>
    void put(T v) {
        char bytes[sizeof(T)];
        std::memcpy(bytes, &v, sizeof(T));
        value_ += 'v';
        value_.append(bytes, sizeof(T));
    }
    void put(char kind, tav_istr text) {
        value_ += kind;
        value_ += std::to_string(text.size()) + ':';
        value_.append(std::string(text));
    }

    void append(std::string & out) const {
        out += std::to_string(value_.size()) + ':' + value_ + '{';
        for (auto const & each : children_) {
            out += std::to_string(each.first.size()) + ':' + each.first;
            each.second->append(out);
        }
        out += '}';
    }

    std::string value_;
    std::multimap<std::string, tavSharedPtr<field_image>> children_;
};

inline bool equal_fields(tavObject const & a, tavObject const & b) {
    return &a == &b || field_image::of(a) == field_image::of(b);
}

} // namespace detail
} // namespace kit
} // namespace tav

#endif

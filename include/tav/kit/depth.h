#ifndef TAV_KIT_DEPTH_H
#define TAV_KIT_DEPTH_H

#include "tav/vinta/vinta_api.h"

#include <stdexcept>

namespace tav {
namespace kit {

/// Limits how deep objects may lie within objects: one stands in the traverse of each class that can hold
/// itself, ahead of its fields.  Bytes of a peer nest as deep as it likes, and the walk over fields calls
/// itself for each level.
///
///     void Reply::traverse(tavCodecStream & s) {
///         tav::kit::depth_limit const limit(64);
///         ioField(s, 1, "replies", replies); // std::vector<Reply>
///     }
///
/// All of them in one thread count together.
class depth_limit {
public:
    /// Raises std::invalid_argument if `most` of them are there.
    explicit depth_limit(int most) {
        if (depth() >= most) {
            throw std::invalid_argument("objects lie deeper than their class permits");
        }
        ++depth();
    }
    ~depth_limit() { --depth(); }
    depth_limit(depth_limit const &) = delete;
    depth_limit & operator=(depth_limit const &) = delete;

private:
    static int & depth() {
        static thread_local int count = 0;
        return count;
    }
};

} // namespace kit
} // namespace tav

#endif

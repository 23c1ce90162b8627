#ifndef TAV_TOOLS_DUMP_TREE_H
#define TAV_TOOLS_DUMP_TREE_H

#include "tools/failure.h"
#include "tools/templates.h"
#include "tools/tree_output.h"

#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace tav {
namespace tool {

/// What the bytes in hand are.
enum class Shape { automatic, nbr, packet, frames, gate };

/// Tells messages to a tree.  Each operation answers whether nothing was broken; what was is told in
/// `faultAt()` and `faultText()`.
class DumpTree {
public:
    /// `model` may be null; with `reveal` protected values are shown.  Texts and bytes above `limit` bytes
    /// are shown in part, unless it is 0.
    DumpTree(TreeOutput & to, Template const * model, bool reveal, std::size_t limit)
        : to_(to), model_(model), reveal_(reveal), limit_(limit) {}

    /// The values of the bytes from `begin` to `end` of the tree's bytes.
    bool document(std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    bool packet(std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    /// A frame whose length stands at `begin`.
    bool frame(std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    bool gate(std::size_t begin, std::size_t end, pml::MetaClass const * cls);

    std::size_t faultAt() const { return faultAt_; }
    std::string const & faultText() const { return faultText_; }
    /// Which of the tree's bytes are not to be shown.
    std::vector<HiddenBytes> const & hidden() const { return hidden_; }
    /// To be called when the tree gets other bytes.
    void forget() { hidden_.clear(); }
    /// Is called with the place of each value that holds others.
    void watch(std::function<void(std::size_t)> call) { watch_ = std::move(call); }

private:
    class NbrTree;
    struct Fixed;

    bool mobile(std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    bool old(std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    bool oldValue(std::size_t index, std::size_t begin, std::size_t end);
    bool body(char const * name, std::size_t begin, std::size_t end, pml::MetaClass const * cls);
    bool named(std::size_t begin, std::size_t end, char const * const * names, std::size_t count);
    bool gatePart(char const * name, int protocol, std::size_t begin, std::size_t end,
                  pml::MetaClass const * cls);
    bool fixed(std::size_t & at, std::size_t end, std::size_t size, char const * name,
               unsigned long long & value);
    void number(std::size_t at, std::size_t size, char const * name, std::string const & value,
                std::string const & note = std::string());
    bool broken(std::size_t at, std::string const & text);
    std::string_view part(std::size_t begin, std::size_t end) const {
        return to_.bytes().substr(begin, end - begin);
    }
    std::string codeName(unsigned short code) const;
    pml::MetaClass const * classOf(unsigned short code) const;

    TreeOutput & to_;
    Template const * model_;
    bool reveal_;
    std::size_t limit_;
    std::size_t faultAt_ = 0;
    std::string faultText_;
    std::vector<HiddenBytes> hidden_;
    std::function<void(std::size_t)> watch_;
};

/// What input that begins with these bytes seems to be; `size` is all that it has, 0 if that is not known.
Shape guessShape(std::string_view front, unsigned long long size);

} // namespace tool
} // namespace tav

#endif

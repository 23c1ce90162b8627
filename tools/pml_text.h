#ifndef TAV_TOOLS_PML_TEXT_H
#define TAV_TOOLS_PML_TEXT_H

#include <tav/vinta/vinta_pml_tree.h>

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tav {
namespace tool {

/// Is told now and then how much of a text's size is done.
typedef std::function<void(std::size_t done, std::size_t size)> Watch;

/// Where the parts of a unit begin in the text: offsets.
struct UnitPlace {
    std::size_t name = 0;
    /// Behind the colon; that of the name if there is no type.
    std::size_t type = 0;
    /// Behind the opening bracket.
    std::size_t value = 0;
    /// The closing bracket.
    std::size_t end = 0;
};

/// Why a text is no PML, and where.
class PmlFault : public std::runtime_error {
public:
    /// `text` is what the library says, `words` what people are told.
    PmlFault(std::string const & text, std::size_t offset, std::string words)
        : std::runtime_error(text), offset_(offset), words_(std::move(words)) {}

    std::size_t offset() const noexcept { return offset_; }
    std::string const & words() const noexcept { return words_; }

private:
    std::size_t offset_;
    std::string words_;
};

/// A text of units, read as pml::Unit::decode reads it, with the place of each unit.
class PmlText {
public:
    /// Throws PmlFault.
    explicit PmlText(std::string_view text, Watch const & watch = {});

    /// The first unit of the sequence.
    tavSharedPtr<pml::Unit> const & first() const { return first_; }
    UnitPlace const & place(pml::Unit const & unit) const;
    /// Where the reading ended: ahead of the end of the text at a NUL, and at a `)` behind the last unit.
    std::size_t end() const { return end_; }

private:
    friend class PmlBuilder;

    tavSharedPtr<pml::Unit> first_;
    std::unordered_map<pml::Unit const *, UnitPlace> places_;
    std::size_t end_ = 0;
};

} // namespace tool
} // namespace tav

#endif

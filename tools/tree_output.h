#ifndef TAV_TOOLS_TREE_OUTPUT_H
#define TAV_TOOLS_TREE_OUTPUT_H

#include "tools/output.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// Some bytes and what they mean.  They are hidden if they are somebody's secret.
struct Piece {
    std::size_t offset = 0;
    std::size_t size = 0;
    std::string text;
    bool hidden = false;
};

/// A line of a tree: a value, or the beginning of what holds values.
struct TreeLine {
    std::size_t offset = 0;
    std::string name;
    std::string type;
    std::string value;
    /// What is odd about it.
    std::string note;
    /// Of the annotated form, in the order of the bytes.
    std::vector<Piece> pieces;
};

/// A tree that is written as it is read.  Offsets are those of the bytes in hand, and are shown as those of
/// the whole input.
class TreeOutput {
public:
    explicit TreeOutput(Output & output) : output_(output) {}
    virtual ~TreeOutput() = default;
    TreeOutput(TreeOutput const &) = delete;
    TreeOutput & operator=(TreeOutput const &) = delete;

    /// The bytes that the following lines speak of; they begin at the offset `base` of the input.
    void bytes(std::string_view all, unsigned long long base) {
        bytes_ = all;
        base_ = base;
    }
    std::string_view bytes() const { return bytes_; }
    unsigned long long base() const { return base_; }

    virtual void leaf(TreeLine const & line) = 0;
    /// What follows is within this, up to `close`.
    virtual void open(TreeLine const & line) = 0;
    /// The bytes that close it, if there are any.
    virtual void close(Piece const & piece) = 0;
    /// All that is open ends here, because of this.
    virtual void fault(std::size_t offset, std::string const & text) = 0;

protected:
    Output & output() { return output_; }

private:
    Output & output_;
    std::string_view bytes_;
    unsigned long long base_ = 0;
};

/// One line for each value; with `annotated` one for each piece, behind its bytes.
class TextTree : public TreeOutput {
public:
    TextTree(Output & output, bool annotated) : TreeOutput(output), annotated_(annotated) {}

    void leaf(TreeLine const & line) override;
    void open(TreeLine const & line) override;
    void close(Piece const & piece) override;
    void fault(std::size_t offset, std::string const & text) override;

private:
    void put(TreeLine const & line);
    void putPiece(Piece const & piece, std::string const & text);
    std::string place(std::size_t offset);
    std::string indent() const;

    bool annotated_;
    std::size_t depth_ = 0;
};

/// One JSON object for each tree, on a line of its own.
class JsonTree : public TreeOutput {
public:
    explicit JsonTree(Output & output) : TreeOutput(output) {}

    void leaf(TreeLine const & line) override;
    void open(TreeLine const & line) override;
    void close(Piece const & piece) override;
    void fault(std::size_t offset, std::string const & text) override;

private:
    void put(TreeLine const & line);

    /// Of each open one: whether a child has been written.
    std::vector<bool> filled_;
};

} // namespace tool
} // namespace tav

#endif

// With a message class that holds itself.
#include <tav/vinta/vinta.h>

#include <stdexcept>
#include <vector>

struct Reply : tavObject {
    tavString text;
    std::vector<Reply> replies;
    tav_istr className() const override { return "Reply"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Reply; }
    void assignFrom(tavObject const &) override {}
    void traverse(tavCodecStream & s) override;
};

BLOCK

thread_local int Level::depth_ = 0;

// A class, with the members that it leaves out made by a class of its own.
#include <tav/vinta/vinta.h>

BLOCK

struct Whole : Contact {
    tav_istr className() const override { return "Contact"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Whole; }
    void assignFrom(tavObject const &) override {}
};

Whole whole;

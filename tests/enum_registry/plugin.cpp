#include "colors.h"

/// A library of an application that hides its symbols and is loaded at run time.
extern "C" TAV_API Plugin const plugin;
Plugin const plugin{
    [](int value, char const * name) { tavEnum<shop::Color>::add(static_cast<shop::Color>(value), name); },
    [](int value, char const * name) {
        return tavEnum<shop::Color>(static_cast<shop::Color>(value)).name() == tav_istr(name);
    },
    [](int value, char const * name) { tavEnum<Private>::add(static_cast<Private>(value), name); },
    [](int value, char const * name) {
        return tavEnum<Private>(static_cast<Private>(value)).name() == tav_istr(name);
    }};

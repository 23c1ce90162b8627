#ifndef TAV_TESTS_ENUM_REGISTRY_COLORS_H
#define TAV_TESTS_ENUM_REGISTRY_COLORS_H

#include "tav/vinta/vinta_basetypes_codec.h"

/// An enum as an application declares it: nothing says that it is to be seen outside.
namespace shop {
enum class Color { red = 1, green = 2 };
} // namespace shop

/// Each source file has its own of this one.
namespace {
enum class Private { one = 1 };
} // namespace

/// What a plugin answers.
struct Plugin {
    void (*addColor)(int value, char const * name);
    bool (*knowsColor)(int value, char const * name);
    void (*addPrivate)(int value, char const * name);
    bool (*knowsPrivate)(int value, char const * name);
};

#endif

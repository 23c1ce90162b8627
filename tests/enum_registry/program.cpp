#include "colors.h"

#include <dlfcn.h>

#include <iostream>

namespace {

int failures = 0;

void expect(bool holds, char const * what) {
    if (!holds) {
        ++failures;
        std::cerr << "does not hold: " << what << '\n';
    }
}

template <class E>
bool knows(int value, char const * name) {
    return tavEnum<E>(static_cast<E>(value)).name() == tav_istr(name);
}

} // namespace

/// Given two plugins, which are loaded apart from each other and from the program.
int main(int argc, char ** argv) {
    if (argc != 3) {
        std::cerr << "usage: program PLUGIN PLUGIN\n";
        return 2;
    }
    Plugin const * plugins[2] = {};
    for (int i = 0; i < 2; ++i) {
        void * const library = dlopen(argv[i + 1], RTLD_NOW | RTLD_LOCAL);
        void * const symbol = library != nullptr ? dlsym(library, "plugin") : nullptr;
        if (symbol == nullptr) {
            std::cerr << dlerror() << '\n';
            return 2;
        }
        plugins[i] = static_cast<Plugin const *>(symbol);
    }
    Plugin const & a = *plugins[0];
    Plugin const & b = *plugins[1];
    expect(&a != &b, "the plugins are two");

    tavEnum<shop::Color>::add(shop::Color::red, "red");
    a.addColor(2, "green");
    b.addColor(7, "blue");
    expect(a.knowsColor(1, "red") && b.knowsColor(1, "red"), "both plugins know the program's name");
    expect(knows<shop::Color>(2, "green") && b.knowsColor(2, "green"), "all know the first plugin's name");
    expect(knows<shop::Color>(7, "blue") && a.knowsColor(7, "blue"), "all know the second plugin's name");
    expect(tavEnum<shop::Color>::values() == std::set<int>{1, 2, 7}, "three values are registered");
    tavEnum<shop::Color>::add(shop::Color::red, "rouge");
    expect(a.knowsColor(1, "rouge") && b.knowsColor(1, "rouge"), "a later name replaces the earlier one");

    a.addPrivate(1, "of a");
    b.addPrivate(1, "of b");
    expect(a.knowsPrivate(1, "of a") && b.knowsPrivate(1, "of b"),
           "an unnamed namespace's enum is not shared");
    expect(tavEnum<Private>::values().empty(), "the program's own one has no names");
    return failures != 0 ? 1 : 0;
}

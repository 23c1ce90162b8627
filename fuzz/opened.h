#ifndef TAV_FUZZ_OPENED_H
#define TAV_FUZZ_OPENED_H

/// Makes `name()`, which gives the pointer `member` of the type `type` to what is private in a class, so that
/// a target does step by step what the class has its threads do.  Only an explicit instantiation may name
/// what is private: so it is the one that defines `opened`, under a tag of its own for each name.
#define TAV_FUZZ_OPEN(name, type, member)                                                                    \
    struct TavFuzzTag_##name {};                                                                             \
    type opened(TavFuzzTag_##name);                                                                          \
    template <type Pointer>                                                                                  \
    struct TavFuzzOpens_##name {                                                                             \
        friend type opened(TavFuzzTag_##name) { return Pointer; }                                            \
    };                                                                                                       \
    template struct TavFuzzOpens_##name<member>;                                                             \
    inline type name() {                                                                                     \
        return opened(TavFuzzTag_##name());                                                                  \
    }                                                                                                        \
    static_assert(true, "a semicolon follows")

#endif

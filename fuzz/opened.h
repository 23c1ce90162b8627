#ifndef TAV_FUZZ_OPENED_H
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

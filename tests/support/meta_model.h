#ifndef TAV_TESTS_SUPPORT_META_MODEL_H
#define TAV_TESTS_SUPPORT_META_MODEL_H

#include "tav/vinta/vinta_pml_meta.h"

#include <set>
#include <string>

namespace tav_test {

/// The message that the examples of the meta model go by.
inline char const * const helloTemplate = "Hello:object(\n"
                                          "    __class__(im.Hello)\n"
                                          "    __code__(1F01)\n"
                                          "    [1]user:string()\n"
                                          "    [2]seq:int64()\n"
                                          "    [3]tags:list{string}()\n"
                                          "    [4]mood:enum{Mood}(\n"
                                          "        __default__(good)\n"
                                          "        good(0)\n"
                                          "        bad(1)\n"
                                          "    )\n"
                                          ")\n";

/// A factory of this template.
inline tav::pml::MetaFactory loadTemplate(std::string const & text) {
    tav::pml::PmlInputStream in{tav_istr(text)};
    return tav::pml::MetaFactory(in);
}

/// The unit of this text.
inline tav::pml::Unit unitOf(std::string const & text) {
    tav::pml::Unit unit;
    unit.decode(tav_istr(text));
    return unit;
}

/// The field that this text declares, without a configuration.
inline tav::pml::MetaField fieldOf(std::string const & text) {
    return tav::pml::MetaField(unitOf(text), tav::pml::Unit());
}

/// What `v` writes, as PML on one line with types.
template <class T>
std::string written(T & v) {
    tavPmlOutStream out;
    v.io(out);
    return out.str(false, false);
}

/// The texts of a set, each with a blank behind it.
inline std::string joined(std::set<tavString> const & texts) {
    std::string out;
    for (tavString const & text : texts) {
        out.append(text.data(), text.size());
        out += ' ';
    }
    return out;
}

} // namespace tav_test

#endif

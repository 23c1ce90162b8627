#ifndef TAV_MODEL_META_LOOKUP_H
#define TAV_MODEL_META_LOOKUP_H

#include "tav/vinta/vinta_pml_meta.h"

#include <cstddef>
#include <unordered_set>
#include <vector>

/// Look-ups in the meta model that go beyond one class.  Nothing here copies a class, a field or a name.
namespace tav {
namespace detail {

/// The class of this name as seen from `current`: one that is declared within it, itself, or one of the
/// factory's; null if there is none.
pml::MetaClass const * findClass(tavString const & name, pml::MetaClass const & current,
                                 pml::MetaFactory const & factory);

/// A class and its base classes, nearest first.  The bases are looked for when a question first needs them.
/// The chain ends at a base that has no class, and at one that is in the chain already, so that bases which
/// go round in a circle end too.
///
/// For one thread, and for as long as nobody changes the factory.
class ClassChain {
public:
    ClassChain(pml::MetaClass const & own, pml::MetaFactory const & factory);

    /// The class itself.
    pml::MetaClass const & own() const { return *own_; }

    /// The field in the class or the nearest base that has it; null if none has.
    pml::MetaField const * findField(tav_istr name);
    pml::MetaField const * findField(short tag);

    /// The bases alone, nearest first.
    std::vector<pml::MetaClass const *> const & bases();

private:
    pml::MetaClass const * base(std::size_t i);
    bool contains(pml::MetaClass const * wanted);
    template <class Key>
    pml::MetaField const * find(Key key);

    pml::MetaClass const * own_;
    pml::MetaFactory const * factory_;
    std::vector<pml::MetaClass const *> bases_;
    /// All of `bases_`, once there are many.
    std::unordered_set<pml::MetaClass const *> known_;
    bool complete_ = false;
};

/// The same for one question.
pml::MetaField const * findField(tav_istr name, pml::MetaClass const & in, pml::MetaFactory const & factory);
pml::MetaField const * findField(short tag, pml::MetaClass const & in, pml::MetaFactory const & factory);

} // namespace detail
} // namespace tav

#endif

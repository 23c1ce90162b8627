#include "model/meta_lookup.h"

#include <algorithm>

namespace tav {
namespace detail {

namespace {

/// Up to this many bases are compared one by one.
constexpr std::size_t plainSearchLimit = 16;

} // namespace

pml::MetaClass const * findClass(tavString const & name, pml::MetaClass const & current,
                                 pml::MetaFactory const & factory) {
    for (pml::MetaClass const & nested : current.classes) {
        if (nested.className == name) {
            return &nested;
        }
    }
    if (current.className == name) {
        return &current;
    }
    auto const found = factory.classes.find(name);
    return found != factory.classes.end() ? &found->second : nullptr;
}

ClassChain::ClassChain(pml::MetaClass const & own, pml::MetaFactory const & factory)
    : own_(&own), factory_(&factory) {}

pml::MetaField const * ClassChain::findField(tav_istr name) {
    return find(name);
}

pml::MetaField const * ClassChain::findField(short tag) {
    return find(tag);
}

std::vector<pml::MetaClass const *> const & ClassChain::bases() {
    while (base(bases_.size()) != nullptr) {
    }
    return bases_;
}

/// The i-th base, where i is no more than one beyond those that are known; null behind the last.
pml::MetaClass const * ClassChain::base(std::size_t i) {
    if (i < bases_.size()) {
        return bases_[i];
    }
    if (complete_) {
        return nullptr;
    }
    pml::MetaClass const & last = bases_.empty() ? *own_ : *bases_.back();
    pml::MetaClass const * const next =
        last.superName.empty() ? nullptr : findClass(last.superName, last, *factory_);
    if (next == nullptr || contains(next)) {
        complete_ = true;
        return nullptr;
    }
    bases_.push_back(next);
    return next;
}

bool ClassChain::contains(pml::MetaClass const * wanted) {
    if (wanted == own_) {
        return true;
    }
    if (bases_.size() < plainSearchLimit) {
        return std::find(bases_.begin(), bases_.end(), wanted) != bases_.end();
    }
    if (known_.empty()) {
        known_.insert(bases_.begin(), bases_.end());
    } else {
        known_.insert(bases_.back());
    }
    return known_.count(wanted) != 0;
}

template <class Key>
pml::MetaField const * ClassChain::find(Key key) {
    if (pml::MetaField const * const field = own_->findField(key)) {
        return field;
    }
    for (std::size_t i = 0; pml::MetaClass const * const next = base(i); ++i) {
        if (pml::MetaField const * const field = next->findField(key)) {
            return field;
        }
    }
    return nullptr;
}

pml::MetaField const * findField(tav_istr name, pml::MetaClass const & in, pml::MetaFactory const & factory) {
    return ClassChain(in, factory).findField(name);
}

pml::MetaField const * findField(short tag, pml::MetaClass const & in, pml::MetaFactory const & factory) {
    return ClassChain(in, factory).findField(tag);
}

} // namespace detail
} // namespace tav

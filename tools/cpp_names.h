#ifndef TAV_TOOLS_CPP_NAMES_H
#define TAV_TOOLS_CPP_NAMES_H

#include "tools/gen.h"

#include <set>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// Why a name can't be used in C++ as it is; empty if it can.
std::string cppFault(std::string const & name);

/// The C++ names of all that is in a model.  A name that C++ can't carry gets another one, with a warning;
/// two names that become one are a Failure.
class CppNames {
public:
    CppNames(GenModel const & model, std::string const & outer);

    /// The namespaces around a class or an enum: "im::chat"; empty for the outermost one.
    std::string const & spaceOf(GenClass const & cls) const { return classes_[indexOf(cls)].space; }
    std::string const & spaceOf(GenEnum const & e) const { return enums_[indexOf(e)].space; }
    std::string const & nameOf(GenClass const & cls) const { return classes_[indexOf(cls)].name; }
    std::string const & nameOf(GenEnum const & e) const { return enums_[indexOf(e)].name; }
    std::string const & memberOf(GenEnum const & e, std::size_t member) const {
        return members_[indexOf(e)][member];
    }
    /// The name of the field in the class that has it, or in one that derives from that.
    std::string fieldOf(GenField const & field) const;
    /// Each as it is written within the class `from`.
    std::string classIn(std::size_t cls, GenClass const & from) const;
    std::string enumIn(std::size_t e, GenClass const & from) const;
    /// The first of these that is no field of the class.
    std::string freeName(std::size_t cls, std::vector<std::string> const & names) const;

    std::vector<GenWarning> takeWarnings() { return std::move(warnings_); }

private:
    struct Named {
        std::string space;
        std::string name;
    };

    std::size_t indexOf(GenClass const & cls) const {
        return static_cast<std::size_t>(&cls - model_.classes.data());
    }
    std::size_t indexOf(GenEnum const & e) const {
        return static_cast<std::size_t>(&e - model_.enums.data());
    }
    std::string fit(std::string const & name, char const * what, std::size_t offset);
    Named split(std::string const & name, char const * what, std::size_t offset);
    void nameClasses();
    void nameEnums();
    void nameFields();
    void claim(Named const & named, std::string const & what, std::size_t offset);
    void refuseSpacesThatAreClasses();
    std::string in(Named const & named, GenClass const & from) const;

    GenModel const & model_;
    std::string outer_;
    std::vector<Named> classes_;
    std::vector<Named> enums_;
    std::vector<std::vector<std::string>> members_;
    /// Of each class the names of its fields and those of its bases.
    std::vector<std::set<std::string>> fields_;
    std::set<std::string> claimed_;
    std::vector<GenWarning> warnings_;
};

} // namespace tool
} // namespace tav

#endif

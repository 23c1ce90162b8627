#ifndef TAV_MODEL_META_READER_H
#define TAV_MODEL_META_READER_H

#include "tav/vinta/vinta_pml_meta.h"

#include <map>

/// How a class of the meta model is read from its unit.  Internal.
namespace tav {
namespace detail {

/// What is known from outside about the classes that are read.
struct MetaContext {
    /// The package of the classes, its parts set apart by dots.
    tavString package;
    /// The full paths of known classes, by the names that a template gives them.
    std::map<tavString, tavString> paths;
};

/// Reads one class and all that is declared within it, in bounded stack and in time proportional to the size
/// of the template.  `cfg` is the template configuration, of which every key has a default:
///
/// - `types`: the language names of the kinds, as field_type::getTypeName takes them;
/// - `classSeparator` (`$`), `importSeparator` (`/`): stand for the dots of class names and import paths;
/// - `importFullPath` (false): import paths stay as written;
/// - `alwaysFullPath` (false): the names of nested classes begin with those of the classes around them, and
///   type names are replaced by the paths that `context` knows for them;
/// - `objectIsReference` (false): a field that is a class declared in place is a reference;
/// - `rootObject` (`DataObject`), `enumObject` (`EnumObject`), `unionObject` (`UnionObject`): the base of a
///   class, an enum and a union that name none;
/// - `imports`: import paths by the kind of a field, as
///   `imports(list(base(...) child(...)) map(base(...) child(...)) enum(...) time(...) object(...))`, where
///   each entry is a value or a list of units with one value each.
///
/// Nothing is refused: what is unknown is a class or has its default.
pml::MetaClass readMetaClass(pml::Unit const & unit, pml::Unit const & cfg, MetaContext const & context);

} // namespace detail
} // namespace tav

#endif

#include "model/meta_reader.h"

#include "support/log_capture.h"
#include "support/meta_model.h"

#include <gtest/gtest.h>

#include <string>

using tav::detail::MetaContext;
using tav::pml::MetaClass;
using tav::pml::Unit;
using tav_test::joined;
using tav_test::unitOf;
namespace field_type = tav::pml::field_type;

namespace {

MetaClass read(std::string const & text, std::string const & cfg,
               MetaContext const & context = MetaContext()) {
    return tav::detail::readMetaClass(unitOf(text), unitOf("(" + cfg + ")"), context);
}

MetaContext inPackage(char const * package) {
    MetaContext context;
    context.package = package;
    return context;
}

TEST(MetaConfig, TypesNamesTheSimpleKinds) {
    MetaClass const c = read("t:T(a:int32()b:int32?()c:string()d:list{x}(e:int64()))",
                             "types(int32(int) int32?(Integer) int64(long))");
    EXPECT_EQ(c.fields.at(0).classType.name, "int");
    EXPECT_EQ(c.fields.at(1).classType.name, "Integer");
    EXPECT_EQ(c.fields.at(2).classType.name, "string");
    EXPECT_EQ(c.fields.at(3).classType.name, "long");
}

TEST(MetaConfig, TypesNamesTheElementsOfAListAsThoseThatAreAlwaysThere) {
    MetaClass const c =
        read("t:T([1]a:list{Foo}(:int32())[2]b:list{Foo}(:int32?()))", "types(int32(int) int32?(Integer))");
    EXPECT_EQ(c.fields.at(0).classType.name, "int");
    EXPECT_EQ(c.fields.at(1).classType.name, "Integer");
}

TEST(MetaConfig, TypesTellsTheLogOfAMissingName) {
    tav_test::LogCapture log;
    read("t:T(a:int64())", "types(int32(int))");
    EXPECT_TRUE(log.contains("type {int64} not defined in template cfg"));
}

TEST(MetaConfig, ClassSeparatorStandsForDots) {
    EXPECT_EQ(read("t:a.b.T(x:int32())", "").className, "a$b$T");
    EXPECT_EQ(read("t:a.b.T(x:int32())", "classSeparator('::')").className, "a::b::T");
    EXPECT_EQ(read("t:object(__class__(a::b::T)x:int32())", "classSeparator('::')").typeText, "a.b.T");
    EXPECT_EQ(read("t:T(__code__:Codes(A))", "classSeparator('::')").code, "Codes::A");
}

TEST(MetaConfig, ImportSeparatorStandsForDots) {
    EXPECT_EQ(joined(read("t:T(__import__(a.b))", "").imports), "a/b ");
    EXPECT_EQ(joined(read("t:T(__import__(a.b))", "importSeparator('::')").imports), "a::b ");
}

TEST(MetaConfig, ImportsLoseThePackageTheyShare) {
    EXPECT_EQ(joined(read("t:T(__import__(im.b.C)__import__(x.C))", "", inPackage("im")).imports),
              "b/C x/C ");
    EXPECT_EQ(joined(read("t:T(__import__(imx.C))", "", inPackage("im")).imports), "imx/C ");
}

TEST(MetaConfig, ImportFullPathKeepsPathsAsWritten) {
    EXPECT_EQ(joined(read("t:T(__import__(im.b.C))", "importFullPath(true)", inPackage("im")).imports),
              "im.b.C ");
}

TEST(MetaConfig, ImportsMayBeRelativeToThePackage) {
    auto const import = [](char const * path) {
        return joined(read("t:T(__import__('" + std::string(path) + "'))", "", inPackage("a.b")).imports);
    };
    EXPECT_EQ(import("."), "a/b ");
    EXPECT_EQ(import(".."), "a ");
    EXPECT_EQ(import("./C"), "C ");
    EXPECT_EQ(import("/C"), "C ");
    EXPECT_EQ(import("../C"), "a/C ");
    EXPECT_EQ(import("../../C"), "C ");
    EXPECT_EQ(import("../../../C"), "C ");
}

TEST(MetaConfig, AlwaysFullPathPutsOuterClassesAhead) {
    std::string const text = "t:T(a:A(b:B(x:int32())))";
    MetaClass const full = read(text, "alwaysFullPath(true)");
    EXPECT_EQ(full.className, "T");
    EXPECT_EQ(full.classes.at(0).className, "T$A");
    EXPECT_EQ(full.classes[0].classes.at(0).className, "T$A$B");
    EXPECT_EQ(full.fields.at(0).classType.name, "T$A");
    MetaClass const plain = read(text, "alwaysFullPath(false)");
    EXPECT_EQ(plain.classes.at(0).classes.at(0).className, "B");
}

TEST(MetaConfig, AlwaysFullPathReplacesKnownTypeNames) {
    MetaContext context;
    context.paths["Foo"] = "im.Foo";
    EXPECT_EQ(read("t:T(a:Foo())", "alwaysFullPath(1)", context).fields.at(0).classType.name, "im.Foo");
    EXPECT_EQ(read("t:T(a:Foo())", "", context).fields.at(0).classType.name, "Foo");
    EXPECT_EQ(read("t:Foo(a:int32())", "alwaysFullPath(1)", context).className, "im.Foo");
}

TEST(MetaConfig, ObjectIsReferenceMakesObjectsReferences) {
    std::string const text = "t:T(a:A(x:int32()))";
    MetaClass const refs = read(text, "objectIsReference(true)");
    EXPECT_EQ(field_type::ref_, refs.fields.at(0).classType.type);
    EXPECT_TRUE(refs.fields[0].classType.isRef);
    EXPECT_EQ(refs.fields[0].classType.name, "A");
    EXPECT_EQ(refs.classes.size(), 1u);
    EXPECT_EQ(field_type::object_, read(text, "").fields.at(0).classType.type);
    EXPECT_EQ(field_type::object_, read(text, "objectIsReference(no)").fields.at(0).classType.type);
}

TEST(MetaConfig, RootObjectIsTheBaseOfClasses) {
    EXPECT_EQ(read("t:T(a:int32())", "").superName, "DataObject");
    EXPECT_EQ(read("t:T(a:int32())", "rootObject(Root)").superName, "Root");
    EXPECT_EQ(read("t:list{T}(a:int32())", "rootObject(Root)").superName, "Root");
    EXPECT_EQ(read("t:T(a:int32())", "rootObject()").superName, "");
    EXPECT_EQ(read("t:T(__super__(null)a:int32())", "rootObject(Root)").superName, "");
}

TEST(MetaConfig, EnumObjectIsTheBaseOfEnums) {
    EXPECT_EQ(read("t:enum{T}(a(1))", "").superName, "EnumObject");
    EXPECT_EQ(read("t:enum{T}(a(1))", "enumObject(E)").superName, "E");
}

TEST(MetaConfig, UnionObjectIsTheBaseOfUnions) {
    EXPECT_EQ(read("t:union{T}(a:int32())", "").superName, "UnionObject");
    EXPECT_EQ(read("t:union{T}(a:int32())", "unionObject(U)").superName, "U");
}

TEST(MetaConfig, ABaseWhosePathIsKnownHasThatPath) {
    MetaContext context;
    context.paths["Base"] = "im.Base";
    context.paths["DataObject"] = "im.DataObject";
    EXPECT_EQ(read("t:T(__super__(Base)a:int32())", "", context).superName, "im.Base");
    EXPECT_EQ(read("t:T(a:int32())", "", context).superName, "im.DataObject");
    EXPECT_EQ(read("t:T(__super__(Other)a:int32())", "", context).superName, "Other");
}

TEST(MetaConfig, TheTypeOfACodeIsResolved) {
    MetaContext context;
    context.paths["Codes"] = "im.Codes";
    EXPECT_EQ(read("t:T(__code__:Codes(A))", "", context).code, "im.Codes$A");
}

TEST(MetaConfig, ImportsGoByTheKindOfAField) {
    std::string const cfg = "imports(list(base(l.B)child(l.C))map(base(m.B)child(m.C))"
                            "enum(e.E)time(t.T)object(o.O))";
    auto const imports = [&](std::string const & field) {
        return joined(read("t:union{T}(" + field + ")", cfg).imports);
    };
    EXPECT_EQ(imports("a:int32()"), "o/O ");
    EXPECT_EQ(imports("a:time()"), "o/O t/T ");
    EXPECT_EQ(imports("a:enum{E}(x(1))"), "e/E o/O ");
    EXPECT_EQ(imports("a:list{int32}()"), "l/B l/C o/O ");
    EXPECT_EQ(imports("a:list{ref{Foo}}()"), "l/B l/C o/O ");
    EXPECT_EQ(imports("a:map{string,int32}()"), "m/B m/C o/O ");
    EXPECT_EQ(joined(read("t:enum{T}(x(1))", cfg).imports), "e/E ");
    EXPECT_EQ(joined(read("t:int32(x(1))", cfg).imports), "");
    EXPECT_EQ(joined(read("t:T(n:N(x:time()))", cfg).classes.at(0).imports), "o/O t/T ");
    EXPECT_EQ(joined(read("t:T(n:N(x:time()))", cfg).imports), "o/O ");
}

TEST(MetaConfig, AnEntryOfImportsMayHoldSeveralPaths) {
    MetaClass const c = read("t:T(a:time())", "imports(time(p(t.A)q(t.B)t.C))");
    EXPECT_EQ(joined(c.imports), "t/A t/B t/C ");
}

TEST(MetaConfig, UnknownKeysChangeNothing) {
    MetaClass const c = read("t:T(a:int32())", "other(x)rootobject(R)");
    EXPECT_EQ(c.superName, "DataObject");
    EXPECT_EQ(c.fields.size(), 1u);
}

TEST(MetaConfigReader, SetsNothingForGlobal) {
    MetaClass const c = read("__global__:T(__class__(X)__code__(1)__super__(S)a:int32())", "");
    EXPECT_EQ(c.className, "");
    EXPECT_EQ(c.code, "");
    EXPECT_EQ(c.superName, "");
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_TRUE(c.fields.empty());
    EXPECT_EQ(c.name, "__global__");
    EXPECT_EQ(c.typeText, "T");
    EXPECT_EQ(c.unit.name(), "__global__");
}

TEST(MetaConfigReader, ReadsNoFieldsForAnEnum) {
    MetaClass const c = read("t:enum{T}(a(1)b(c(2)))", "");
    EXPECT_EQ(field_type::enum_, c.kind);
    EXPECT_TRUE(c.fields.empty());
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(c.unit.size(), 2u);
}

TEST(MetaConfigReader, ReadsAClassWithoutAClassNameToo) {
    MetaClass const c = read("t:object(a:int32())", "");
    EXPECT_EQ(c.className, "");
    EXPECT_EQ(c.typeText, "");
    EXPECT_EQ(field_type::object_, c.kind);
    EXPECT_EQ(c.fields.size(), 1u);
}

} // namespace

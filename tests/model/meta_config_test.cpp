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
    EXPECT_EQ("int", c.fields.at(0).classType.name);
    EXPECT_EQ("Integer", c.fields.at(1).classType.name);
    EXPECT_EQ("string", c.fields.at(2).classType.name);
    EXPECT_EQ("long", c.fields.at(3).classType.name);
}

TEST(MetaConfig, TypesTellsTheLogOfAMissingName) {
    tav_test::LogCapture log;
    read("t:T(a:int64())", "types(int32(int))");
    EXPECT_TRUE(log.contains("type {int64} not defined in template cfg"));
}

TEST(MetaConfig, ClassSeparatorStandsForDots) {
    EXPECT_EQ("a$b$T", read("t:a.b.T(x:int32())", "").className);
    EXPECT_EQ("a::b::T", read("t:a.b.T(x:int32())", "classSeparator('::')").className);
    EXPECT_EQ("a.b.T", read("t:object(__class__(a::b::T)x:int32())", "classSeparator('::')").typeText);
    EXPECT_EQ("Codes::A", read("t:T(__code__:Codes(A))", "classSeparator('::')").code);
}

TEST(MetaConfig, ImportSeparatorStandsForDots) {
    EXPECT_EQ("a/b ", joined(read("t:T(__import__(a.b))", "").imports));
    EXPECT_EQ("a::b ", joined(read("t:T(__import__(a.b))", "importSeparator('::')").imports));
}

TEST(MetaConfig, ImportsLoseThePackageTheyShare) {
    EXPECT_EQ("b/C x/C ",
              joined(read("t:T(__import__(im.b.C)__import__(x.C))", "", inPackage("im")).imports));
    EXPECT_EQ("imx/C ", joined(read("t:T(__import__(imx.C))", "", inPackage("im")).imports));
}

TEST(MetaConfig, ImportFullPathKeepsPathsAsWritten) {
    EXPECT_EQ("im.b.C ",
              joined(read("t:T(__import__(im.b.C))", "importFullPath(true)", inPackage("im")).imports));
}

TEST(MetaConfig, ImportsMayBeRelativeToThePackage) {
    auto const import = [](char const * path) {
        return joined(read("t:T(__import__('" + std::string(path) + "'))", "", inPackage("a.b")).imports);
    };
    EXPECT_EQ("a/b ", import("."));
    EXPECT_EQ("a ", import(".."));
    EXPECT_EQ("C ", import("./C"));
    EXPECT_EQ("C ", import("/C"));
    EXPECT_EQ("a/C ", import("../C"));
    EXPECT_EQ("C ", import("../../C"));
    EXPECT_EQ("C ", import("../../../C"));
}

TEST(MetaConfig, AlwaysFullPathPutsOuterClassesAhead) {
    std::string const text = "t:T(a:A(b:B(x:int32())))";
    MetaClass const full = read(text, "alwaysFullPath(true)");
    EXPECT_EQ("T", full.className);
    EXPECT_EQ("T$A", full.classes.at(0).className);
    EXPECT_EQ("T$A$B", full.classes[0].classes.at(0).className);
    EXPECT_EQ("T$A", full.fields.at(0).classType.name);
    MetaClass const plain = read(text, "alwaysFullPath(false)");
    EXPECT_EQ("B", plain.classes.at(0).classes.at(0).className);
}

TEST(MetaConfig, AlwaysFullPathReplacesKnownTypeNames) {
    MetaContext context;
    context.paths["Foo"] = "im.Foo";
    EXPECT_EQ("im.Foo", read("t:T(a:Foo())", "alwaysFullPath(1)", context).fields.at(0).classType.name);
    EXPECT_EQ("Foo", read("t:T(a:Foo())", "", context).fields.at(0).classType.name);
    EXPECT_EQ("im.Foo", read("t:Foo(a:int32())", "alwaysFullPath(1)", context).className);
}

TEST(MetaConfig, ObjectIsReferenceMakesObjectsReferences) {
    std::string const text = "t:T(a:A(x:int32()))";
    MetaClass const refs = read(text, "objectIsReference(true)");
    EXPECT_EQ(field_type::ref_, refs.fields.at(0).classType.type);
    EXPECT_TRUE(refs.fields[0].classType.isRef);
    EXPECT_EQ("A", refs.fields[0].classType.name);
    EXPECT_EQ(1u, refs.classes.size());
    EXPECT_EQ(field_type::object_, read(text, "").fields.at(0).classType.type);
    EXPECT_EQ(field_type::object_, read(text, "objectIsReference(no)").fields.at(0).classType.type);
}

TEST(MetaConfig, RootObjectIsTheBaseOfClasses) {
    EXPECT_EQ("DataObject", read("t:T(a:int32())", "").superName);
    EXPECT_EQ("Root", read("t:T(a:int32())", "rootObject(Root)").superName);
    EXPECT_EQ("Root", read("t:list{T}(a:int32())", "rootObject(Root)").superName);
    EXPECT_EQ("", read("t:T(a:int32())", "rootObject()").superName);
    EXPECT_EQ("", read("t:T(__super__(null)a:int32())", "rootObject(Root)").superName);
}

TEST(MetaConfig, EnumObjectIsTheBaseOfEnums) {
    EXPECT_EQ("EnumObject", read("t:enum{T}(a(1))", "").superName);
    EXPECT_EQ("E", read("t:enum{T}(a(1))", "enumObject(E)").superName);
}

TEST(MetaConfig, UnionObjectIsTheBaseOfUnions) {
    EXPECT_EQ("UnionObject", read("t:union{T}(a:int32())", "").superName);
    EXPECT_EQ("U", read("t:union{T}(a:int32())", "unionObject(U)").superName);
}

TEST(MetaConfig, ABaseWhosePathIsKnownHasThatPath) {
    MetaContext context;
    context.paths["Base"] = "im.Base";
    context.paths["DataObject"] = "im.DataObject";
    EXPECT_EQ("im.Base", read("t:T(__super__(Base)a:int32())", "", context).superName);
    EXPECT_EQ("im.DataObject", read("t:T(a:int32())", "", context).superName);
    EXPECT_EQ("Other", read("t:T(__super__(Other)a:int32())", "", context).superName);
}

TEST(MetaConfig, TheTypeOfACodeIsResolved) {
    MetaContext context;
    context.paths["Codes"] = "im.Codes";
    EXPECT_EQ("im.Codes$A", read("t:T(__code__:Codes(A))", "", context).code);
}

TEST(MetaConfig, ImportsGoByTheKindOfAField) {
    std::string const cfg = "imports(list(base(l.B)child(l.C))map(base(m.B)child(m.C))"
                            "enum(e.E)time(t.T)object(o.O))";
    auto const imports = [&](std::string const & field) {
        return joined(read("t:union{T}(" + field + ")", cfg).imports);
    };
    EXPECT_EQ("o/O ", imports("a:int32()"));
    EXPECT_EQ("o/O t/T ", imports("a:time()"));
    EXPECT_EQ("e/E o/O ", imports("a:enum{E}(x(1))"));
    EXPECT_EQ("l/B l/C o/O ", imports("a:list{int32}()"));
    EXPECT_EQ("l/B l/C o/O ", imports("a:list{ref{Foo}}()"));
    EXPECT_EQ("m/B m/C o/O ", imports("a:map{string,int32}()"));
    EXPECT_EQ("e/E ", joined(read("t:enum{T}(x(1))", cfg).imports));
    EXPECT_EQ("", joined(read("t:int32(x(1))", cfg).imports));
    EXPECT_EQ("o/O t/T ", joined(read("t:T(n:N(x:time()))", cfg).classes.at(0).imports));
    EXPECT_EQ("o/O ", joined(read("t:T(n:N(x:time()))", cfg).imports));
}

TEST(MetaConfig, AnEntryOfImportsMayHoldSeveralPaths) {
    MetaClass const c = read("t:T(a:time())", "imports(time(p(t.A)q(t.B)t.C))");
    EXPECT_EQ("t/A t/B t/C ", joined(c.imports));
}

TEST(MetaConfig, UnknownKeysChangeNothing) {
    MetaClass const c = read("t:T(a:int32())", "other(x)rootobject(R)");
    EXPECT_EQ("DataObject", c.superName);
    EXPECT_EQ(1u, c.fields.size());
}

TEST(MetaReader, SetsNothingForGlobal) {
    MetaClass const c = read("__global__:T(__class__(X)__code__(1)__super__(S)a:int32())", "");
    EXPECT_EQ("", c.className);
    EXPECT_EQ("", c.code);
    EXPECT_EQ("", c.superName);
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_TRUE(c.fields.empty());
    EXPECT_EQ("__global__", c.name);
    EXPECT_EQ("T", c.typeText);
    EXPECT_EQ("__global__", c.unit.name());
}

TEST(MetaReader, ReadsNoFieldsForAnEnum) {
    MetaClass const c = read("t:enum{T}(a(1)b(c(2)))", "");
    EXPECT_EQ(field_type::enum_, c.kind);
    EXPECT_TRUE(c.fields.empty());
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(2u, c.unit.size());
}

TEST(MetaReader, ReadsAClassWithoutAClassNameToo) {
    MetaClass const c = read("t:object(a:int32())", "");
    EXPECT_EQ("", c.className);
    EXPECT_EQ("", c.typeText);
    EXPECT_EQ(field_type::object_, c.kind);
    EXPECT_EQ(1u, c.fields.size());
}

} // namespace

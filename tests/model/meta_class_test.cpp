#include "tav/vinta/vinta_pml_meta.h"

#include "support/log_capture.h"
#include "support/meta_model.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::joined;
using tav_test::loadTemplate;
namespace field_type = tav::pml::field_type;

namespace {

/// The only class of a template.
MetaClass classOf(std::string const & text) {
    MetaFactory const factory = loadTemplate(text);
    EXPECT_EQ(1u, factory.classes.size()) << text;
    return factory.classes.empty() ? MetaClass() : factory.classes.begin()->second;
}

/// A class with these fields.
MetaClass withFields(std::string const & fields) {
    return classOf("top:Top(" + fields + ")");
}

MetaField const & onlyField(MetaClass const & c) {
    static MetaField const none;
    EXPECT_EQ(1u, c.fields.size());
    return c.fields.empty() ? none : c.fields.front();
}

TEST(MetaClass, StartsAsAStringWithoutAnything) {
    MetaClass const c;
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_FALSE(c.isList);
    EXPECT_FALSE(c.isRef);
    EXPECT_EQ("", c.className);
    EXPECT_TRUE(c.fields.empty() && c.classes.empty() && c.enums.empty() && c.imports.empty());
    EXPECT_TRUE(c.unit.empty());
}

TEST(MetaClass, KeepsACopyOfItsUnit) {
    MetaClass const c = withFields("[1]a:int32(5)");
    EXPECT_EQ("top", c.unit.name());
    EXPECT_EQ("Top", c.unit.type());
    ASSERT_EQ(1u, c.unit.size());
    EXPECT_EQ("5", c.unit.at(0).value());
}

TEST(MetaClass, TakesTheTagOffItsName) {
    MetaClass const c = classOf("[7]top:Top([1]a:int32())");
    EXPECT_EQ("top", c.name);
    EXPECT_EQ("[7]top", c.unit.name());
}

TEST(MetaClass, IsNamedByItsDirective) {
    MetaClass const c = classOf("top:Top(__class__(im.Top)[1]a:int32())");
    EXPECT_EQ("im.Top", c.className);
    EXPECT_EQ("Top", c.typeText);
    EXPECT_EQ(field_type::object_, c.kind);
}

TEST(MetaClass, IsNamedByItsTypeTextElse) {
    MetaClass const c = classOf("top:im.sub.Top([1]a:int32())");
    EXPECT_EQ("im$sub$Top", c.className);
    EXPECT_EQ("im.sub.Top", c.typeText);
}

TEST(MetaClass, WithoutTypeTextTakesItFromItsName) {
    MetaClass const c = classOf("top:object(__class__(im$Top)[1]a:int32())");
    EXPECT_EQ("im$Top", c.className);
    EXPECT_EQ("im.Top", c.typeText);
}

TEST(MetaClass, IsOptionalWithItsNameIntact) {
    EXPECT_EQ("Top", classOf("top:Top?([1]a:int32())").className);
}

TEST(MetaClass, TakesTheFirstOfEachDirective) {
    MetaClass const c = classOf("t:T(__class__(A)__class__(B)__code__(1)__code__(2)"
                                "__super__(C)__super__(D)a:int32())");
    EXPECT_EQ("A", c.className);
    EXPECT_EQ("1", c.code);
    EXPECT_EQ("C", c.superName);
}

TEST(MetaClass, GathersAllImports) {
    MetaClass const c = classOf("t:T(__import__(im.A)__import__(B)a:int32()__import__(im.sub.C))");
    EXPECT_EQ("B im/A im/sub/C ", joined(c.imports));
    EXPECT_EQ("", joined(classOf("t:T(__import__()a:time())").imports));
}

TEST(MetaClass, PutsATypeAheadOfItsCode) {
    EXPECT_EQ("im.Codes$HELLO", classOf("t:T(__code__:im.Codes(HELLO)a:int32())").code);
    EXPECT_EQ("HELLO", classOf("t:T(__code__(HELLO)a:int32())").code);
}

TEST(MetaClass, HasTheRootAsBaseUnlessItNamesOne) {
    EXPECT_EQ("DataObject", withFields("a:int32()").superName);
    EXPECT_EQ("DataObject", withFields("__super__()a:int32()").superName);
    EXPECT_EQ("Base", withFields("__super__(Base)a:int32()").superName);
    EXPECT_EQ("UnionObject", classOf("u:union{U}(a:int32())").superName);
    EXPECT_EQ("DataObject", classOf("m:map{string,M}(a:int32())").superName);
}

TEST(MetaClass, HasNoBaseIfThatIsNull) {
    EXPECT_EQ("", withFields("__super__(null)a:int32()").superName);
    EXPECT_EQ("", classOf("u:union{U}(__super__(null)a:int32())").superName);
}

TEST(MetaClass, OfASimpleKindHasNoBaseAndNoFields) {
    MetaClass const c = classOf("x:int32([1]a:int32())");
    EXPECT_EQ("int32", c.className);
    EXPECT_EQ(field_type::int32_, c.kind);
    EXPECT_EQ("", c.superName);
    EXPECT_TRUE(c.fields.empty());
}

TEST(MetaClass, WithoutTypeTextIsAString) {
    MetaClass const c = classOf("x(__class__(X)[1]a:int32())");
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_EQ("X", c.typeText);
    EXPECT_TRUE(c.fields.empty());
}

TEST(MetaClass, WithoutChildrenIsAReference) {
    MetaClass const c = classOf("x:Foo()");
    EXPECT_EQ(field_type::ref_, c.kind);
    EXPECT_TRUE(c.isRef);
    EXPECT_FALSE(c.isList);
    EXPECT_EQ("Foo", c.className);
    EXPECT_EQ("DataObject", c.superName);
}

TEST(MetaClass, WithADirectiveAloneIsNoReference) {
    MetaClass const c = classOf("x:Foo(__code__(1))");
    EXPECT_EQ(field_type::object_, c.kind);
    EXPECT_FALSE(c.isRef);
}

TEST(MetaClass, TellsListsAndReferencesByItsKind) {
    MetaClass const list = classOf("x:list{Foo}(a:int32())");
    EXPECT_TRUE(list.isList);
    EXPECT_FALSE(list.isRef);
    MetaClass const refs = classOf("x:list{ref{Foo}}(a:int32())");
    EXPECT_EQ(field_type::ref_list_, refs.kind);
    EXPECT_TRUE(refs.isList);
    EXPECT_TRUE(refs.isRef);
    MetaClass const ref = classOf("x:ref{Foo}(a:int32())");
    EXPECT_FALSE(ref.isList);
    EXPECT_TRUE(ref.isRef);
}

TEST(MetaClass, ReadsFieldsInOrderAndPassesDirectivesOver) {
    MetaClass const c = withFields("[2]b:int32()__other__(x)[1]a:string()__c:int32()__super__(S)[3]d()");
    ASSERT_EQ(3u, c.fields.size());
    EXPECT_EQ("b", c.fields[0].idName.name);
    EXPECT_EQ("a", c.fields[1].idName.name);
    EXPECT_EQ("d", c.fields[2].idName.name);
    EXPECT_EQ(field_type::string_, c.fields[2].classType.type);
    EXPECT_TRUE(c.classes.empty());
}

TEST(MetaClass, PassesADirectiveWithChildrenOver) {
    MetaClass const c = withFields("__global__(a(1))a:int32()");
    EXPECT_EQ(1u, c.fields.size());
    EXPECT_TRUE(c.classes.empty());
}

TEST(MetaClass, FindsTheFirstFieldByNameAndByTag) {
    MetaClass const c = withFields("[1]a:int32()[2]b:int64()[2]a:string()[3]b:bool()");
    EXPECT_EQ(&c.fields[0], c.findField("a"));
    EXPECT_EQ(&c.fields[1], c.findField("b"));
    EXPECT_EQ(&c.fields[1], c.findField(2));
    EXPECT_EQ(&c.fields[3], c.findField(3));
    EXPECT_EQ(nullptr, c.findField("c"));
    EXPECT_EQ(nullptr, c.findField(""));
    EXPECT_EQ(nullptr, c.findField(0));
    EXPECT_EQ(nullptr, c.findField(258));
}

TEST(MetaClass, FindsFieldsThatChangedAfterwards) {
    MetaClass c = withFields("[1]a:int32()[2]b:int64()");
    EXPECT_EQ(&c.fields[1], c.findField("b"));
    c.fields[0].idName.name = "b";
    c.fields[0].idName.id = 2;
    EXPECT_EQ(&c.fields[0], c.findField("b"));
    EXPECT_EQ(&c.fields[0], c.findField(2));
    EXPECT_EQ(nullptr, c.findField("a"));
}

TEST(MetaClassEnumField, BringsANestedEnum) {
    MetaClass const c = withFields("[4]mood:enum{Mood}(__default__(good)good(0)bad(1))");
    ASSERT_EQ(1u, c.enums.size());
    EXPECT_EQ("Mood", c.enums[0].name);
    EXPECT_EQ(3u, c.enums[0].values.size());
    EXPECT_EQ("1", c.enums[0].values.child("bad").value());
    EXPECT_TRUE(c.classes.empty());
    MetaField const & field = onlyField(c);
    EXPECT_EQ(4, field.idName.id);
    EXPECT_EQ("mood", field.idName.name);
    EXPECT_EQ(field_type::enum_, field.classType.type);
    EXPECT_EQ("Mood", field.classType.name);
    EXPECT_FALSE(field.classType.optional);
    EXPECT_EQ("good", field.valueComment.value);
    EXPECT_EQ((std::set<int>{0, 1}), field.validValues);
    MetaClass const twice = withFields("mood:enum{Mood}(__default__(a)__default__(b)__other__(9)a(0)b(1))");
    EXPECT_EQ("a", onlyField(twice).valueComment.value);
    EXPECT_EQ((std::set<int>{0, 1}), onlyField(twice).validValues);
}

TEST(MetaClassEnumField, ReadsMembersAsIntegersAndElseAsMinusOne) {
    MetaField const field =
        onlyField(withFields("mood:enum{Mood}(a(0x10)b(-3)c(x)d()e(99999999999)f(010)g(1 1))"));
    EXPECT_EQ((std::set<int>{-3, -1, 8, 16}), field.validValues);
    EXPECT_EQ("", field.valueComment.value);
}

TEST(MetaClassEnumField, IsNamedByItsDirectiveFirst) {
    MetaClass const c = withFields("mood:enum{Mood}?(__class__(im.Mood)a(0))");
    EXPECT_EQ("im.Mood", c.enums.at(0).name);
    EXPECT_EQ("im.Mood", onlyField(c).classType.name);
    EXPECT_TRUE(onlyField(c).classType.optional);
}

TEST(MetaClassEnumField, WithoutMembersIsAPlainField) {
    MetaClass const c = withFields("mood:enum{Mood}(1)");
    EXPECT_TRUE(c.enums.empty());
    EXPECT_EQ(field_type::enum_, onlyField(c).classType.type);
    EXPECT_EQ("Mood", onlyField(c).classType.name);
    EXPECT_EQ("1", onlyField(c).valueComment.value);
    EXPECT_TRUE(onlyField(c).validValues.empty());
}

TEST(MetaClassMapField, AddsItsFirstChildAsElement) {
    MetaClass const c = withFields("[1]m:map{string,Foo}(v:Foo([1]a:int32())w:Bar([1]b:int32()))");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Foo", c.classes[0].className);
    EXPECT_EQ("v", c.classes[0].name);
    EXPECT_EQ("a", onlyField(c.classes[0]).idName.name);
    EXPECT_EQ("v", c.classes[0].unit.name());
    MetaField const & field = onlyField(c);
    EXPECT_EQ(1, field.idName.id);
    EXPECT_EQ(field_type::map_, field.classType.type);
    EXPECT_EQ("Foo", field.classType.name);
    EXPECT_EQ(field_type::object_, field.classType.elementType);
    EXPECT_EQ("string", field.classType.keyName);
    EXPECT_EQ(field_type::string_, field.classType.keyType);
}

TEST(MetaClassMapField, TakesAnElementWithoutAName) {
    MetaClass const c = withFields("m:map{string,Foo}(:Bar([1]a:int32()))");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Bar", c.classes[0].className);
    EXPECT_EQ("Bar", onlyField(c).classType.name);
}

TEST(MetaClassMapField, MayHaveASimpleElement) {
    MetaClass const c = withFields("m:map{int64,Foo}?(v:int32())");
    EXPECT_EQ(1u, c.classes.size());
    MetaField const & field = onlyField(c);
    EXPECT_EQ("int32", field.classType.name);
    EXPECT_EQ(field_type::int32_, field.classType.elementType);
    EXPECT_EQ(field_type::int64_, field.classType.keyType);
    EXPECT_TRUE(field.classType.optional);
}

TEST(MetaClassMapField, MayHaveAReferenceOrAnEnumAsElement) {
    MetaClass const refs = withFields("m:map{string,Foo}(v:Bar())");
    EXPECT_EQ("Bar", onlyField(refs).classType.name);
    EXPECT_EQ(field_type::ref_, onlyField(refs).classType.elementType);
    EXPECT_EQ(1u, refs.classes.size());
    MetaClass const enums = withFields("m:map{string,Foo}(v:enum{Mood}(a(3)b(4)))");
    EXPECT_EQ("Mood", onlyField(enums).classType.name);
    EXPECT_EQ(field_type::enum_, onlyField(enums).classType.elementType);
    EXPECT_EQ((std::set<int>{3, 4}), onlyField(enums).validValues);
    EXPECT_EQ(1u, enums.classes.size());
}

TEST(MetaClassMapField, KeepsItsTypeWithDirectivesAlone) {
    MetaClass const c = withFields("m:map{string,Foo}(__import__(x))");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ("Foo", onlyField(c).classType.name);
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
}

TEST(MetaClassListField, OfAnUnnamedChildTakesItsTypeText) {
    MetaClass const c = withFields("[1]a:list{Foo}((x))[2]b:list{Foo}(:int32())[3]c:list{Foo}(:Bar())"
                                   "[4]d:list{Foo}(:ref{Bar}())[5]e:list{ref{Foo}}(:Bar())"
                                   "[6]f:list{Foo}(:list{Bar}())");
    EXPECT_TRUE(c.classes.empty());
    ASSERT_EQ(6u, c.fields.size());
    auto const expect = [&](unsigned i, field_type::values kind, char const * name,
                            field_type::values element) {
        EXPECT_EQ(kind, c.fields[i].classType.type) << i;
        EXPECT_EQ(name, c.fields[i].classType.name) << i;
        EXPECT_EQ(element, c.fields[i].classType.elementType) << i;
    };
    expect(0, field_type::list_, "string", field_type::string_);
    expect(1, field_type::list_, "int32", field_type::int32_);
    expect(2, field_type::list_, "Bar", field_type::object_);
    expect(3, field_type::ref_list_, "Bar", field_type::unknown_);
    expect(4, field_type::ref_list_, "Bar", field_type::object_);
    expect(5, field_type::list_, "Bar", field_type::unknown_);
}

TEST(MetaClassListField, OfASimpleChildIsAListOfThatKind) {
    MetaClass const c = withFields("[1]a:list{Foo}(x:int64())[2]b:list{ref{Foo}}?(x())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::list_, c.fields[0].classType.type);
    EXPECT_EQ(field_type::int64_, c.fields[0].classType.elementType);
    EXPECT_EQ("int64", c.fields[0].classType.name);
    EXPECT_EQ(field_type::list_, c.fields[1].classType.type);
    EXPECT_EQ(field_type::string_, c.fields[1].classType.elementType);
    EXPECT_EQ("string", c.fields[1].classType.name);
    EXPECT_TRUE(c.fields[1].classType.optional);
}

TEST(MetaClassListField, OfAReferenceIsAListOfReferences) {
    MetaClass const c = withFields("[1]a:list{Foo}(x:Bar())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_list_, onlyField(c).classType.type);
    EXPECT_EQ("Bar", onlyField(c).classType.name);
}

TEST(MetaClassListField, OfAClassAddsThatClass) {
    MetaClass const c = withFields("[1]a:list{Foo}[3](x:Bar([1]i:int32())y:Baz([1]j:int32()))");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Bar", c.classes[0].className);
    EXPECT_EQ("i", onlyField(c.classes[0]).idName.name);
    EXPECT_EQ(field_type::list_, onlyField(c).classType.type);
    EXPECT_EQ("Bar", onlyField(c).classType.name);
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
    ASSERT_EQ(1u, onlyField(c).classType.dimensions.size());
    EXPECT_EQ("3", onlyField(c).classType.dimensions[0]);
}

TEST(MetaClassListField, KeepsItsTypeWithDirectivesAlone) {
    MetaClass const c = withFields("[1]a:list{Foo}(__import__(x))");
    EXPECT_EQ(field_type::list_, onlyField(c).classType.type);
    EXPECT_EQ("Foo", onlyField(c).classType.name);
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
}

TEST(MetaClassListField, PassesDirectivesOverAheadOfItsElement) {
    MetaClass const c = withFields("[1]a:list{Foo}(__import__(x)y:int8())");
    EXPECT_EQ(field_type::int8_, onlyField(c).classType.elementType);
}

TEST(MetaClassObjectField, WithFieldsAddsItsClass) {
    MetaClass const c = withFields("[1]home:Address?[2]([1]city:string())");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Address", c.classes[0].className);
    EXPECT_EQ("home", c.classes[0].name);
    EXPECT_EQ("city", onlyField(c.classes[0]).idName.name);
    EXPECT_EQ("[1]home", c.classes[0].unit.name());
    MetaField const & field = onlyField(c);
    EXPECT_EQ(1, field.idName.id);
    EXPECT_EQ("home", field.idName.name);
    EXPECT_EQ(field_type::object_, field.classType.type);
    EXPECT_EQ("Address", field.classType.name);
    EXPECT_FALSE(field.classType.isRef);
    EXPECT_TRUE(field.classType.optional);
    EXPECT_EQ(1u, field.classType.dimensions.size());
}

TEST(MetaClassObjectField, OfWhateverKindBecomesAnObjectOnceItHasFields) {
    for (char const * type : {"ref{Foo}", "union{Foo}", "optional{Foo}", "array{Foo}"}) {
        MetaClass const c = withFields(std::string("x:") + type + "(a:int32())");
        ASSERT_EQ(1u, c.classes.size()) << type;
        EXPECT_EQ("Foo", c.classes[0].className) << type;
        EXPECT_EQ(field_type::object_, onlyField(c).classType.type) << type;
        EXPECT_EQ("Foo", onlyField(c).classType.name) << type;
    }
    EXPECT_TRUE(onlyField(withFields("x:optional{Foo}(a:int32())")).classType.optional);
}

TEST(MetaClassObjectField, WithNothingButANameIsAReference) {
    for (char const * text : {"x:Foo(__import__(im.Foo))", "x:Bar(__class__(Foo))", "x:ref{Foo}(__x(1))"}) {
        MetaClass const c = withFields(text);
        EXPECT_TRUE(c.classes.empty()) << text;
        EXPECT_EQ(field_type::ref_, onlyField(c).classType.type) << text;
        EXPECT_EQ("Foo", onlyField(c).classType.name) << text;
        EXPECT_TRUE(onlyField(c).classType.isRef) << text;
    }
}

TEST(MetaClassObjectField, WithoutTypeTextIsAReferenceOfItsName) {
    MetaClass const c = withFields("[2]home([1]city:string())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_, onlyField(c).classType.type);
    EXPECT_EQ("home", onlyField(c).classType.name);
    EXPECT_EQ(2, onlyField(c).idName.id);
}

TEST(MetaClassObjectField, OfASimpleKindWithChildrenIsAReferenceOfThatName) {
    MetaClass const c = withFields("[2]x:int32(a:int8())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_, onlyField(c).classType.type);
    EXPECT_EQ("int32", onlyField(c).classType.name);
}

TEST(MetaClassObjectField, WithABaseOrACodeOfItsOwnDeclaresAClass) {
    MetaClass const c = withFields("[2]home:Home(__super__(Address))");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Address", c.classes[0].superName);
    EXPECT_EQ(field_type::object_, onlyField(c).classType.type);
    EXPECT_EQ(1u, withFields("home:Home(__code__(1))").classes.size());
    EXPECT_EQ(1u, withFields("home:Home(__super__(null))").classes.size());
}

TEST(MetaClass, NestsClassesWithinClasses) {
    MetaClass const c = withFields("a:A(b:B(c:C(x:int32())m:enum{M}(one(1)))) d:D(y:int32())");
    ASSERT_EQ(2u, c.classes.size());
    EXPECT_EQ("D", c.classes[1].className);
    MetaClass const & b = c.classes[0].classes.at(0);
    EXPECT_EQ("B", b.className);
    EXPECT_EQ("C", b.classes.at(0).className);
    EXPECT_EQ("M", b.enums.at(0).name);
    ASSERT_EQ(2u, b.fields.size());
    EXPECT_EQ("c", b.fields[0].idName.name);
    EXPECT_EQ("m", b.fields[1].idName.name);
}

TEST(MetaClass, OfAListKindReadsItsOwnFields) {
    MetaClass const c = classOf("x:list{Foo}(a:Bar(i:int32())b:int32())");
    EXPECT_EQ("Foo", c.className);
    EXPECT_EQ(2u, c.fields.size());
    EXPECT_EQ("Bar", c.classes.at(0).className);
}

TEST(MetaClass, OfAListElementThatIsAListKeepsItsFields) {
    MetaClass const c = withFields("x:list{Foo}(y:list{Bar}(z:Baz(i:int32())))");
    ASSERT_EQ(1u, c.classes.size());
    EXPECT_EQ("Bar", c.classes[0].className);
    EXPECT_EQ("Baz", c.classes[0].classes.at(0).className);
    EXPECT_EQ("z", onlyField(c.classes[0]).idName.name);
    EXPECT_EQ("Bar", onlyField(c).classType.name);
}

TEST(MetaClass, CopiesWithAllThatIsWithin) {
    MetaClass const c = withFields("__code__(12)__import__(i)a:A(b:B(x:int32()))m:enum{M}(one(1))");
    MetaClass copy(c);
    EXPECT_EQ(c.className, copy.className);
    EXPECT_EQ(c.code, copy.code);
    EXPECT_EQ(c.imports, copy.imports);
    EXPECT_EQ(c.typeText, copy.typeText);
    EXPECT_EQ(c.superName, copy.superName);
    EXPECT_EQ(c.kind.value(), copy.kind.value());
    EXPECT_EQ("B", copy.classes.at(0).classes.at(0).className);
    EXPECT_EQ("x", copy.classes[0].classes[0].fields.at(0).idName.name);
    EXPECT_EQ("M", copy.enums.at(0).name);
    copy.classes[0].classes[0].className = "X";
    EXPECT_EQ("B", c.classes[0].classes[0].className);
    EXPECT_EQ(c.unit.at(0).value(), copy.unit.at(0).value());
}

TEST(MetaClass, MovesWithAllThatIsWithin) {
    MetaClass c = withFields("a:A(b:B(x:int32()))");
    MetaClass const * const nested = &c.classes[0];
    MetaClass moved(std::move(c));
    EXPECT_EQ("Top", moved.className);
    EXPECT_EQ(nested, &moved.classes.at(0));
    MetaClass assigned;
    assigned = std::move(moved);
    EXPECT_EQ(nested, &assigned.classes.at(0));
    EXPECT_EQ("top", assigned.unit.name());
    static_assert(std::is_nothrow_move_constructible<MetaClass>::value, "vectors of classes move them");
}

TEST(MetaClass, TakesOneOfItsOwnClasses) {
    MetaClass c = withFields("a:A(b:B(x:int32()))");
    c = c.classes[0];
    EXPECT_EQ("A", c.className);
    c = std::move(c.classes[0]);
    EXPECT_EQ("B", c.className);
    EXPECT_EQ("x", onlyField(c).idName.name);
    EXPECT_EQ("b", c.unit.name());
    MetaClass & same = c;
    c = same;
    EXPECT_EQ("B", c.className);
    EXPECT_EQ(1u, c.fields.size());
}

TEST(MetaClass, TellsAMapWithoutCommaToTheLog) {
    tav_test::LogCapture log;
    MetaClass const c = withFields("[1]m:map{string}()");
    EXPECT_EQ(1u, log.count("no ',' found for map type: string"));
    EXPECT_EQ(field_type::unknown_, onlyField(c).classType.keyType);
}

} // namespace

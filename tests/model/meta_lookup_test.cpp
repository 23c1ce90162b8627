#include "model/meta_lookup.h"

#include "support/meta_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tav::detail::ClassChain;
using tav::detail::findClass;
using tav::detail::findField;
using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav_test::loadTemplate;

namespace {

TEST(MetaLookupFindClass, LooksInNestedClassesFirst) {
    MetaFactory const factory =
        loadTemplate("a:A(n:B(x:int32())m:A(y:int32())) b:B(z:int32()) c:C(w:int32())");
    MetaClass const & a = *factory.findClass("A");
    EXPECT_EQ(&a.classes[0], findClass("B", a, factory));
    EXPECT_EQ(&a.classes[1], findClass("A", a, factory));
    EXPECT_EQ(factory.findClass("C"), findClass("C", a, factory));
    EXPECT_EQ(factory.findClass("B"), findClass("B", *factory.findClass("C"), factory));
    EXPECT_EQ(findClass("D", a, factory), nullptr);
}

TEST(MetaLookupFindClass, LooksAtTheClassItselfAheadOfTheFactory) {
    MetaFactory const factory = loadTemplate("a:A(n:B(x:int32())) b:B(z:int32())");
    MetaClass const & nested = factory.findClass("A")->classes.at(0);
    EXPECT_EQ(&nested, findClass("B", nested, factory));
    EXPECT_EQ(factory.findClass("A"), findClass("A", nested, factory));
}

TEST(MetaLookupFindClass, TakesTheFirstOfTwoNestedClasses) {
    MetaFactory const factory = loadTemplate("a:A(n:B(x:int32())m:B(y:int32()))");
    EXPECT_EQ(findClass("B", *factory.findClass("A"), factory)->name, "n");
}

TEST(MetaLookupClassChain, FindsFieldsUpTheBases) {
    MetaFactory const factory = loadTemplate("a:A(__super__(B)[1]x:int32())"
                                             "b:B(__super__(C)[1]hidden:int32()[2]y:int32())"
                                             "c:C([2]x:int64()[3]z:int32())");
    MetaClass const & a = *factory.findClass("A");
    MetaClass const & b = *factory.findClass("B");
    MetaClass const & c = *factory.findClass("C");
    ClassChain chain(a, factory);
    EXPECT_EQ(&a, &chain.own());
    EXPECT_EQ(&a.fields[0], chain.findField("x"));
    EXPECT_EQ(&b.fields[1], chain.findField("y"));
    EXPECT_EQ(&c.fields[1], chain.findField("z"));
    EXPECT_EQ(chain.findField("w"), nullptr);
    EXPECT_EQ(&a.fields[0], chain.findField(1));
    EXPECT_EQ(&b.fields[1], chain.findField(2));
    EXPECT_EQ(&c.fields[1], chain.findField(3));
    EXPECT_EQ(chain.findField(4), nullptr);
    EXPECT_EQ((std::vector<MetaClass const *>{&b, &c}), chain.bases());
    EXPECT_EQ(&c.fields[1], findField("z", a, factory));
    EXPECT_EQ(&b.fields[1], findField(2, a, factory));
    EXPECT_EQ(findField("y", c, factory), nullptr);
}

TEST(MetaLookupClassChain, EndsAtABaseWithoutClass) {
    MetaFactory const factory = loadTemplate("a:A(__super__(B)x:int32()) b:B(y:int32())");
    ClassChain chain(*factory.findClass("A"), factory);
    EXPECT_EQ(factory.findClass("B")->superName, "DataObject");
    EXPECT_EQ(chain.findField("z"), nullptr);
    EXPECT_EQ(chain.bases().size(), 1u);
}

TEST(MetaLookupClassChain, EndsWithoutBase) {
    MetaFactory const factory = loadTemplate("a:A(__super__(null)n:object(x:int32()))");
    ClassChain chain(*factory.findClass("A"), factory);
    EXPECT_TRUE(chain.bases().empty());
    EXPECT_EQ(chain.findField("x"), nullptr);
}

TEST(MetaLookupClassChain, SeesTheRootIfItIsDeclared) {
    MetaFactory const factory = loadTemplate("r:DataObject([1]id:int64()) a:A(x:int32())");
    ClassChain chain(*factory.findClass("A"), factory);
    EXPECT_EQ(&factory.findClass("DataObject")->fields[0], chain.findField("id"));
    EXPECT_EQ(chain.bases().size(), 1u);
}

TEST(MetaLookupClassChain, LooksForEachBaseAsSeenFromTheClassBelowIt) {
    MetaFactory const factory = loadTemplate("a:A(__super__(B)n:B(__super__(C)[1]x:int32()))"
                                             "b:B([1]y:int32()) c:C([1]z:int32())");
    MetaClass const & a = *factory.findClass("A");
    ClassChain chain(a, factory);
    EXPECT_EQ((std::vector<MetaClass const *>{&a.classes[0], factory.findClass("C")}), chain.bases());
    EXPECT_EQ(chain.findField("y"), nullptr);
    EXPECT_NE(chain.findField("z"), nullptr);

    MetaFactory const other = loadTemplate("a:A(__super__(B)x:int32()) d:D(y:int32())"
                                           "b:B(__super__(D)n:D(z:int32()))");
    ClassChain through(*other.findClass("A"), other);
    EXPECT_EQ(&other.findClass("B")->classes[0], through.bases().at(1));
}

TEST(MetaLookupClassChain, EndsWhereBasesGoRoundInACircle) {
    MetaFactory const factory = loadTemplate("a:A(__super__(B)x:int32()) b:B(__super__(A)y:int32())"
                                             "s:S(__super__(S)z:int32()) t:T(__super__(A)w:int32())");
    ClassChain a(*factory.findClass("A"), factory);
    EXPECT_EQ(a.findField("z"), nullptr);
    EXPECT_NE(a.findField("y"), nullptr);
    EXPECT_EQ(a.bases().size(), 1u);
    ClassChain self(*factory.findClass("S"), factory);
    EXPECT_EQ(self.findField(99), nullptr);
    EXPECT_TRUE(self.bases().empty());
    ClassChain into(*factory.findClass("T"), factory);
    EXPECT_EQ(into.findField("z"), nullptr);
    EXPECT_EQ(into.bases().size(), 2u);
}

TEST(MetaLookupClassChain, EndsAtALongCircle) {
    for (unsigned const length : {15u, 16u, 17u, 18u, 1000u}) {
        std::string text;
        for (unsigned i = 0; i < length; ++i) {
            text += "c:C" + std::to_string(i) + "(__super__(C" + std::to_string((i + 1) % length) + ")f" +
                    std::to_string(i) + ":int8())";
        }
        MetaFactory const factory = loadTemplate(text);
        ClassChain chain(*factory.findClass("C0"), factory);
        EXPECT_EQ(chain.findField("none"), nullptr);
        EXPECT_EQ(length - 1, chain.bases().size());
        EXPECT_NE(chain.findField(tav_istr("f" + std::to_string(length - 1))), nullptr);
    }
}

TEST(MetaLookupClassChain, EndsAtALongCircleThatBeginsFarUp) {
    for (unsigned const entry : {14u, 15u, 16u, 17u, 18u, 30u}) {
        std::string text;
        for (unsigned i = 0; i < 40; ++i) {
            text += "c:C" + std::to_string(i) + "(__super__(C" + std::to_string(i == 39 ? entry : i + 1) +
                    ")f:int8())";
        }
        MetaFactory const factory = loadTemplate(text);
        ClassChain chain(*factory.findClass("C0"), factory);
        EXPECT_EQ(chain.bases().size(), 39u) << entry;
    }
}

TEST(MetaLookupClassChain, FindsTheSameLateAndEarly) {
    MetaFactory const factory = loadTemplate("a:A(__super__(B)[1]x:int32()) b:B([2]y:int32())");
    ClassChain eager(*factory.findClass("A"), factory);
    eager.bases();
    ClassChain lazy(*factory.findClass("A"), factory);
    EXPECT_EQ(eager.findField("y"), lazy.findField("y"));
    EXPECT_EQ(eager.bases(), lazy.bases());
}

} // namespace

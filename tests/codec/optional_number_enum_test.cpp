#include "tav/vinta/vinta_basetypes_codec.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <vector>

namespace {

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

enum class Color { red = 1, green = 2, blue = 5 };
enum class Bare { none, some = 7 };
enum Plain { plain_a = 3, plain_b = 4 };
enum class Late { none = 127, one = 1 };
enum class Renamed { a = 1, b = 2 };
enum class Threaded { first = 0 };
enum class Again { one = 1, two = 2 };

} // namespace

namespace tav_test {
enum class SharedByAll { one = 1 };
} // namespace tav_test

namespace tav {
template <>
struct EnumDefault<Late> {
    static constexpr int value = 127;
};
} // namespace tav

TEST(OptionalNumberEnumOptional, IsUnsetAndValueInitialisedAtFirst) {
    tavOptional<long long> const v;
    EXPECT_FALSE(v.has_value());
    EXPECT_FALSE(static_cast<bool>(v));
    EXPECT_EQ(v.value(), 0);
    EXPECT_EQ(*v, 0);
    EXPECT_EQ(*tavOptional<tavString>()->data(), '\0');
}

TEST(OptionalNumberEnumOptional, ConstructionAndAssignmentSetIt) {
    tavOptional<int> v(5);
    EXPECT_TRUE(v.has_value());
    EXPECT_EQ(*v, 5);
    int const six = 6;
    v = six;
    EXPECT_EQ(v.value(), 6);
    tavOptional<int> w;
    w = 0;
    EXPECT_TRUE(w.has_value());
    EXPECT_TRUE(static_cast<bool>(w));
    tavOptional<tavString> text;
    text = tavString("ab");
    EXPECT_EQ(text->size(), 2u);
}

TEST(OptionalNumberEnumOptional, CopyKeepsWhetherItIsSet) {
    tavOptional<int> const set(3);
    tavOptional<int> const unset;
    tavOptional<int> v(set);
    EXPECT_TRUE(v.has_value());
    EXPECT_EQ(*v, 3);
    v = unset;
    EXPECT_FALSE(v.has_value());
    EXPECT_EQ(*v, 0);
}

TEST(OptionalNumberEnumOptional, WritingToTheValueDoesNotSetIt) {
    tavOptional<int> v;
    v.value() = 9;
    EXPECT_FALSE(v.has_value());
    EXPECT_EQ(v.value(), 9);
}

TEST(OptionalNumberEnumOptional, ResetValueInitialises) {
    tavOptional<tavString> v(tavString("x"));
    v.reset();
    EXPECT_FALSE(v.has_value());
    EXPECT_TRUE(v.value().empty());
}

TEST(OptionalNumberEnumOptional, TruthIsExplicit) {
    EXPECT_FALSE((std::is_convertible<tavOptional<int>, bool>::value));
    EXPECT_TRUE((std::is_constructible<bool, tavOptional<int>>::value));
}

TEST(OptionalNumberEnumOptional, IsTheValueAndATruthValue) {
    EXPECT_EQ(sizeof(tavOptional<char>), sizeof(char) + sizeof(bool));
    EXPECT_EQ(sizeof(tavOptional<long long>), 2 * sizeof(long long));
}

TEST(OptionalNumberEnumNumber, StartsOutWithItsDefault) {
    EXPECT_EQ((tavNumber<int, 7>()), 7);
    EXPECT_EQ((tavNumber<int, -3>()), -3);
    EXPECT_EQ((tavNumber<bool, 1>()), true);
    EXPECT_EQ((tavNumber<bool, 0>()), false);
    EXPECT_EQ((tavNumber<double, 2>()), 2.0);
    EXPECT_EQ((tavNumber<unsigned long long, 1>()), 1ull);
}

TEST(OptionalNumberEnumNumber, TakesAndGivesPlainNumbers) {
    tavNumber<int, 7> v(3);
    EXPECT_EQ(v, 3);
    v = 9;
    int const plain = v;
    EXPECT_EQ(plain, 9);
    EXPECT_EQ(printed(v), "9");
    EXPECT_EQ(v + 1, 10);
}

TEST(OptionalNumberEnum, DerivesFromTheEnumBaseAndStartsWithZero) {
    EXPECT_TRUE((std::is_base_of<tavEnumBase, tavEnum<Bare>>::value));
    EXPECT_EQ(tavEnum<Bare>().value(), 0);
    EXPECT_EQ(tavEnum<Bare>(), Bare::none);
}

TEST(OptionalNumberEnum, HoldsOneInt) {
    struct Int : tavEnumBase {
        int value;
    };
    EXPECT_EQ(sizeof(tavEnum<Bare>), sizeof(Int));
}

TEST(OptionalNumberEnum, DefaultOfAnEnumMayBeAnother) {
    EXPECT_EQ(tavEnum<Late>().value(), 127);
    EXPECT_EQ(tavEnum<Late>(), Late::none);
}

TEST(OptionalNumberEnum, TakesAnyIntWhileNothingIsRegistered) {
    tavEnum<Bare> v(99);
    EXPECT_EQ(v.value(), 99);
    v = -4;
    EXPECT_EQ(v.value(), -4);
    v = Bare::some;
    EXPECT_EQ(v.value(), 7);
    EXPECT_EQ(static_cast<Bare>(v), Bare::some);
    EXPECT_TRUE(tavEnum<Bare>::values().empty());
    EXPECT_EQ(v.name().data(), nullptr);
    EXPECT_EQ(printed(v), "7");
}

TEST(OptionalNumberEnum, RefusesAnIntThatIsNotRegistered) {
    tavEnum<Color>::add(Color::red, "red");
    tavEnum<Color>::add(Color::green, "green");
    tavEnum<Color> v(Color::red);
    EXPECT_NO_THROW(v = 2);
    try {
        v = 3;
        FAIL() << "3 was taken";
    } catch (tavInvalidEnumValue const & e) {
        EXPECT_EQ(e.value(), 3);
    }
    EXPECT_EQ(v.value(), 2);
    EXPECT_THROW(tavEnum<Color>(4), tavInvalidEnumValue);
    EXPECT_EQ(tavEnum<Color>::values(), (std::set<int>{1, 2}));
}

TEST(OptionalNumberEnum, ValueAlreadyHeldIsNotChecked) {
    tavEnum<Color>::add(Color::red, "red");
    tavEnum<Color> v;
    EXPECT_NO_THROW(v = 0);
    EXPECT_NO_THROW(tavEnum<Color>(0));
    v = Color::blue;
    EXPECT_NO_THROW(v = 5);
    EXPECT_EQ(v.value(), 5);
}

TEST(OptionalNumberEnum, PrintsItsNameOrItsNumber) {
    tavEnum<Color>::add(Color::green, "green");
    EXPECT_EQ(printed(tavEnum<Color>(Color::green)), "green");
    EXPECT_EQ(printed(tavEnum<Color>(Color::blue)), "5");
    EXPECT_EQ(tavEnum<Color>(Color::green).name(), "green");
    EXPECT_EQ(tavEnum<Color>(Color::blue).name().data(), nullptr);
}

TEST(OptionalNumberEnum, WrapsUnscopedEnumsToo) {
    tavEnum<Plain> v(plain_a);
    EXPECT_TRUE(v == plain_a);
    v = plain_b;
    EXPECT_EQ(v.value(), 4);
}

TEST(OptionalNumberEnum, LaterNameReplacesAndOldViewsStayGood) {
    tavEnum<Renamed>::add(Renamed::a, "first");
    tav_istr const old = tavEnum<Renamed>(Renamed::a).name();
    tavEnum<Renamed>::add(Renamed::a, "second");
    tavEnum<Renamed>::add(Renamed::b, "first");
    EXPECT_EQ(old, "first");
    EXPECT_EQ(tavEnum<Renamed>(Renamed::a).name(), "second");
    EXPECT_EQ(tavEnum<Renamed>::numbers(),
              (std::map<tavString, int>{{tavString("first"), 2}, {tavString("second"), 1}}));
}

TEST(OptionalNumberEnum, EntryThatIsThereAlreadyChangesNothing) {
    tavEnum<Again>::add(Again::one, "one");
    tavEnum<Again>::add(Again::two, "two");
    std::set<int> const & values = tav::detail::FieldAccess::valuesOf<Again>();
    tavEnum<Again>::add(Again::one, "one");
    EXPECT_EQ(&tav::detail::FieldAccess::valuesOf<Again>(), &values);
    tavEnum<Again>::add(Again::one, "two");
    EXPECT_NE(&tav::detail::FieldAccess::valuesOf<Again>(), &values);
    EXPECT_EQ(tavEnum<Again>::numbers(),
              (std::map<tavString, int>{{tavString("one"), 1}, {tavString("two"), 1}}));
    tavEnum<Again>::add(Again::two, "two");
    EXPECT_EQ(tavEnum<Again>::numbers().at(tavString("two")), 2);
    EXPECT_EQ(values, (std::set<int>{1, 2}));
}

TEST(OptionalNumberEnum, NullNameIsAnEmptyOne) {
    enum class Unnamed { one = 1 };
    tavEnum<Unnamed>::add(Unnamed::one, nullptr);
    EXPECT_NE(tavEnum<Unnamed>(Unnamed::one).name().data(), nullptr);
    EXPECT_EQ(tavEnum<Unnamed>(Unnamed::one).name().size(), 0u);
    EXPECT_THROW(tavEnum<Unnamed>(2), tavInvalidEnumValue);
}

TEST(OptionalNumberEnumRegistry, IsOneForATypeWhoeverAsks) {
    using tav::detail::EnumRegistry;
    EnumRegistry & registry = EnumRegistry::of(typeid(tav_test::SharedByAll));
    EXPECT_EQ(&EnumRegistry::of(typeid(tav_test::SharedByAll)), &registry);
    tavEnum<tav_test::SharedByAll>::add(tav_test::SharedByAll::one, "one");
    EXPECT_EQ(registry.name(1), "one");
    EXPECT_FALSE(registry.permits(2));
}

TEST(OptionalNumberEnumRegistry, IsOneForEachSourceFileOfATypeOfAnUnnamedNamespace) {
    using tav::detail::EnumRegistry;
    EnumRegistry & registry = EnumRegistry::of(typeid(Color));
    EnumRegistry & other = EnumRegistry::of(typeid(Color));
    EXPECT_NE(&registry, &other);
    registry.add(77, "here");
    EXPECT_EQ(other.name(77).data(), nullptr);
}

TEST(OptionalNumberEnum, IsAKeyOfBothKindsOfMap) {
    std::map<tavEnum<Plain>, int> ordered;
    ordered[plain_b] = 1;
    ordered[plain_a] = 2;
    EXPECT_EQ(ordered.begin()->second, 2);
    std::unordered_map<tavEnum<Plain>, int> hashed;
    hashed[plain_b] = 1;
    EXPECT_EQ(hashed.at(plain_b), 1);
}

TEST(OptionalNumberEnum, RegistryIsSafeForThreads) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            do {
                std::set<int> const values = tavEnum<Threaded>::values();
                tavEnum<Threaded> v;
                for (int const value : values) {
                    v = value;
                    EXPECT_FALSE(v.name().empty());
                }
            } while (!stop);
        });
    }
    for (int i = 0; i < 100; ++i) {
        tavEnum<Threaded>::add(static_cast<Threaded>(i), ("n" + std::to_string(i)).c_str());
    }
    stop = true;
    for (std::thread & reader : readers) {
        reader.join();
    }
    EXPECT_EQ(tavEnum<Threaded>::values().size(), 100u);
}

TEST(OptionalNumberEnumValues, FindsBothWays) {
    tav::vinta::EnumValues v;
    v.add(1, "one");
    v.add(-2, "minus two");
    EXPECT_EQ(v.getName(1), "one");
    EXPECT_EQ(v.getName(-2), "minus two");
    EXPECT_EQ(v.getValue("one"), 1);
    EXPECT_EQ(v.getValue(tav_istr("minus two!", 9)), -2);
}

TEST(OptionalNumberEnumValues, UnknownNameIsMinusOneAndUnknownValueANullView) {
    tav::vinta::EnumValues v;
    v.add(1, "one");
    EXPECT_EQ(v.getValue("two"), -1);
    EXPECT_EQ(v.getName(2).data(), nullptr);
    EXPECT_EQ(v.getName(2).size(), 0u);
}

TEST(OptionalNumberEnumValues, NullNameIsTheEmptyOne) {
    tav::vinta::EnumValues v;
    EXPECT_EQ(v.getValue(tav_istr()), -1);
    v.add(4, nullptr);
    EXPECT_EQ(v.getValue(tav_istr()), 4);
    EXPECT_EQ(v.getValue(""), 4);
    EXPECT_NE(v.getName(4).data(), nullptr);
    EXPECT_EQ(v.getName(4).size(), 0u);
}

TEST(OptionalNumberEnumValues, RepeatedEntriesReplaceInTheirMapOnly) {
    tav::vinta::EnumValues v;
    v.add(1, "one");
    v.add(1, "eins");
    EXPECT_EQ(v.getName(1), "eins");
    EXPECT_EQ(v.getValue("one"), 1);
    v.add(2, "one");
    EXPECT_EQ(v.getValue("one"), 2);
    EXPECT_EQ(v.getName(1), "eins");
}

TEST(OptionalNumberEnumValues, ClearEmptiesBothMaps) {
    tav::vinta::EnumValues v;
    v.add(1, "one");
    v.clear();
    EXPECT_EQ(v.getValue("one"), -1);
    EXPECT_EQ(v.getName(1).data(), nullptr);
}

TEST(OptionalNumberEnumObject, IsAssignedAndHoldsNothing) {
    tav::vinta::EnumObject a;
    tav::vinta::EnumObject const b;
    EXPECT_EQ(&(a = b), &a);
    EXPECT_TRUE((std::is_empty<tav::vinta::EnumObject>::value));
}

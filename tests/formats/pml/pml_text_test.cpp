#include "tav/vinta/vinta_pml_unit.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <vector>

using tav::pml::Unit;

namespace {

Unit parsed(std::string const & text) {
    Unit unit;
    unit.decode(tav_istr(text));
    return unit;
}

/// The unit and those that follow as text that hides nothing: {name:type=value children...}.
std::string shown(Unit const & unit) {
    std::string out = "{" + unit.name();
    if (!unit.type().empty()) {
        out += ":" + unit.type();
    }
    out += "=" + unit.value();
    for (tavSharedPtr<Unit> const & child : unit) {
        out += shown(*child);
    }
    out += "}";
    return unit.next() ? out + shown(*unit.next()) : out;
}

std::string shownText(std::string const & text) {
    return shown(parsed(text));
}

/// The failure's text up to the position, "" if there is none.
std::string failure(std::string const & text) {
    Unit unit;
    try {
        unit.decode(tav_istr(text));
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return what.substr(0, what.find("\n    throw at "));
    }
    return "";
}

/// What follows "throw at ", up to the bracket.
std::string site(std::string const & text) {
    Unit unit;
    try {
        unit.decode(tav_istr(text));
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        std::string const mark = "\n    throw at ";
        std::size_t const at = what.find(mark) + mark.size();
        return what.substr(at, what.find(':', what.find('(', at)) - at);
    }
    return "";
}

std::string escaped(std::string const & text) {
    std::string out;
    tav::pml::escape(out, tav_istr(text));
    return out;
}

std::string unescaped(std::string const & text) {
    std::string out;
    tav::pml::unescape(out, tav_istr(text));
    return out;
}

Unit person() {
    Unit unit(tav_istr("person"));
    unit.child("name").type("string").value("Ann");
    unit.child("age").type("int32").value("30");
    unit.child("addr").child("city").value("Oslo");
    return unit;
}

} // namespace

TEST(PmlText, TableOfExamples) {
    EXPECT_EQ(shownText("a(1)"), "{a=1}");
    EXPECT_EQ(shownText("a:int32(1)"), "{a:int32=1}");
    EXPECT_EQ(shownText("a(b(1)c(2))"), "{a={b=1}{c=2}}");
    EXPECT_EQ(shownText("a(b(1)c(2) rest)"), "{a=rest{b=1}{c=2}}");
    EXPECT_EQ(shownText("a(x:y)"), "{a=x:y}");
    EXPECT_EQ(shownText("a(p:int(1))"), "{a={p:int=1}}");
    EXPECT_EQ(shownText("a(\"x:y\")"), "{a=x:y}");
    EXPECT_EQ(shownText("a('it^'s')"), "{a=it's}");
    EXPECT_EQ(shownText("a(1)(*note*)b(2)"), "{a=1}{b=2}");
    EXPECT_EQ(shownText("a()"), "{a=}");
    EXPECT_EQ(shownText("(1)"), "{=1}");
}

TEST(PmlText, DecodeReturnsTheUnit) {
    Unit unit;
    EXPECT_EQ(&unit, &unit.decode("a(1)"));
    EXPECT_EQ(&unit, &unit.decode(""));
}

TEST(PmlText, EmptyTextLeavesTheUnit) {
    Unit unit(tav_istr("n"), tav_istr("v"));
    unit.decode("");
    unit.decode(tav_istr());
    unit.decode(tav_istr("x(1)", 0u));
    EXPECT_EQ(shown(unit), "{n=v}");
}

TEST(PmlText, DecodeAppendsToWhatTheUnitHolds) {
    Unit unit(tav_istr("n"), tav_istr("t"), tav_istr("v"));
    unit.decode("a:b(c)");
    EXPECT_EQ(shown(unit), "{na:tb=vc}");
}

TEST(PmlText, TextEndsAtItsSizeOrAtTheFirstNul) {
    Unit unit;
    unit.decode(tav_istr("a(1)b(2)", 4u));
    EXPECT_EQ(shown(unit), "{a=1}");
    EXPECT_EQ(shownText(std::string("a(1)\0b(", 7)), "{a=1}");
    EXPECT_EQ(failure(std::string("a(1\0)", 5)), "no pml value end tag");
    EXPECT_EQ(failure(std::string("\0", 1)), "empty for pml unit");
    EXPECT_EQ(failure(std::string("\0a(1)", 5)), "empty for pml unit");
}

TEST(PmlText, FourBytesAreBlank) {
    EXPECT_EQ(shownText(" \t\r\na \t\r\n( \t\r\n1)"), "{a=1}");
    EXPECT_EQ(shownText("a(x\t\r\n y)"), "{a=x y}");
    EXPECT_EQ(shownText("a(x\vy\f)"), "{a=x\vy\f}");
}

TEST(PmlText, CommentsStandBetweenAnyTokens) {
    EXPECT_EQ(shownText("(*0*)a(*1*):(*2*)t(*3*)((*4*)b(*5*)((*6*)1(*7*))(*8*))(*9*)"), "{a:t={b=1}}");
    EXPECT_EQ(shownText("a(1) (*x*) (*y*) b(2)"), "{a=1}{b=2}");
}

TEST(PmlText, CommentsDoNotNest) {
    EXPECT_EQ(failure("(*x(*y*)*)a(1)"), "invalid pml: extra )");
    EXPECT_EQ(shownText("(*x(*y*)*a(1)"), "{*a=1}");
}

TEST(PmlText, CommentOpenedByThreeBytesIsNotClosedByThem) {
    EXPECT_EQ(failure("(*)"), "empty for pml unit");
    EXPECT_EQ(shownText("(*)x*)a(1)"), "{a=1}");
    EXPECT_EQ(shownText("(**)a(1)"), "{a=1}");
}

TEST(PmlText, UnterminatedCommentSwallowsTheRest) {
    EXPECT_EQ(failure("(*a(1)"), "empty for pml unit");
    EXPECT_EQ(failure("a(*b(1)"), "empty after pml name");
    EXPECT_EQ(failure("a(1(*)"), "no pml value end tag");
    EXPECT_EQ(shownText("a(1)(*rest"), "{a=1}");
}

TEST(PmlText, NameWordsAreJoined) {
    EXPECT_EQ(shownText("ab cd(1)"), "{abcd=1}");
    EXPECT_EQ(shownText("ab(*x*)cd  (1)"), "{abcd=1}");
    EXPECT_EQ(shownText("a\"b(1)"), "{a\"b=1}");
}

TEST(PmlText, NameMayBeEmpty) {
    EXPECT_EQ(shownText(":t(1)"), "{:t=1}");
    EXPECT_EQ(shownText("((1))"), "{={=1}}");
}

TEST(PmlText, BlanksInATypeBecomeOneSpace) {
    EXPECT_EQ(shownText("a : int32 (1)"), "{a:int32 =1}");
    EXPECT_EQ(shownText("a:  x \t y\n(1)"), "{a:x y =1}");
    EXPECT_EQ(shownText("a:x(*c*)y(*d*)(1)"), "{a:xy=1}");
    EXPECT_EQ(shownText("a:(1)"), "{a=1}");
    EXPECT_EQ(shownText("a:b:c(1)"), "{a:b:c=1}");
}

TEST(PmlText, BlanksInBareTextBecomeOneSpaceAndStayAheadOfTheEnd) {
    EXPECT_EQ(shownText("a(  x   y  )"), "{a=x y }");
    EXPECT_EQ(shownText("a(   )"), "{a=}");
    EXPECT_EQ(shownText("a((*c*) x )"), "{a=x }");
}

TEST(PmlText, ACommentAloneMakesNoSpace) {
    EXPECT_EQ(shownText("a(x(*c*)y)"), "{a=xy}");
    EXPECT_EQ(shownText("a(x (*c*)y)"), "{a=x y}");
    EXPECT_EQ(shownText("a(x(*c*) y)"), "{a=x y}");
    EXPECT_EQ(shownText("a(x (*c*) (*d*) y)"), "{a=x y}");
}

TEST(PmlText, StarsAndCaretsAreBareText) {
    EXPECT_EQ(shownText("a(x*y^z*)"), "{a=x*y^z*}");
}

TEST(PmlText, QuotedTextIsAppendedWithoutQuotesAndCarets) {
    EXPECT_EQ(shownText("a(\" x (y) \")"), "{a= x (y) }");
    EXPECT_EQ(shownText("a(\"^\"^^^'\")"), "{a=\"^'}");
    EXPECT_EQ(shownText("a('x\"y')"), "{a=x\"y}");
    EXPECT_EQ(shownText("a(\"x'y\")"), "{a=x'y}");
    EXPECT_EQ(shownText("a(\"\")"), "{a=}");
    EXPECT_EQ(shownText("a(\"(*no*)\")"), "{a=(*no*)}");
    EXPECT_EQ(shownText("a(\"x  y\")"), "{a=x  y}");
}

TEST(PmlText, QuotesStandSideBySide) {
    EXPECT_EQ(shownText("a(\"x\" \"y\")"), "{a=xy}");
    EXPECT_EQ(shownText("a(\"x\"'y')"), "{a=xy}");
    EXPECT_EQ(shownText("a(\"x\" \" y\")"), "{a=x y}");
}

TEST(PmlText, BareWordAgainstAQuoteIsDropped) {
    EXPECT_EQ(shownText("a(b\"c\")"), "{a=c}");
    EXPECT_EQ(shownText("a(x b\"c\")"), "{a=x c}");
    EXPECT_EQ(shownText("a(b \"c\")"), "{a=b c}");
    EXPECT_EQ(shownText("a(b(*x*)\"c\")"), "{a=bc}");
}

TEST(PmlText, BlanksBehindAQuoteOrAChildAreSkipped) {
    EXPECT_EQ(shownText("a(\"c\"  d)"), "{a=cd}");
    EXPECT_EQ(shownText("a(\"c\"  )"), "{a=c}");
    EXPECT_EQ(shownText("a(b(1)  )"), "{a={b=1}}");
    EXPECT_EQ(shownText("a(b(1)  d )"), "{a=d {b=1}}");
}

TEST(PmlText, AllBareTextSoFarNamesTheChild) {
    EXPECT_EQ(shownText("a(text b(1))"), "{a={text b=1}}");
    EXPECT_EQ(shownText("a(text   b  (1))"), "{a={text b=1}}");
    EXPECT_EQ(shownText("a(\"q \" b :t(1))"), "{a={q b:t=1}}");
    EXPECT_EQ(shownText("a(\"q \"(1))"), "{a={q=1}}");
    EXPECT_EQ(shownText("a((1)(2))"), "{a={=1}{=2}}");
}

TEST(PmlText, AChildEndsTheValueGatheredAheadOfIt) {
    EXPECT_EQ(shownText("a(x(1)y(2)z)"), "{a=z{x=1}{y=2}}");
    EXPECT_EQ(shownText("a(\"v\" x(1))"), "{a={vx=1}}");
}

TEST(PmlText, ColonWithoutATypeJoinsTheValue) {
    EXPECT_EQ(shownText("a(b:c)"), "{a=b:c}");
    EXPECT_EQ(shownText("a(b:c(1))"), "{a={b:c=1}}");
    EXPECT_EQ(shownText("a(x:y z)"), "{a=x:z}");
    EXPECT_EQ(shownText("a(x:)"), "{a=x:}");
    EXPECT_EQ(shownText("a(:y)"), "{a=:y}");
    EXPECT_EQ(shownText("a(x : y)"), "{a=x :y}");
    EXPECT_EQ(shownText("a(x:y:z)"), "{a=x:y:z}");
    EXPECT_EQ(shownText("a(x:y )"), "{a=x:}");
    EXPECT_EQ(shownText("a(b(1)x:y)"), "{a=x:y{b=1}}");
    EXPECT_EQ(shownText("a(b(x:y)c(1))"), "{a={b=x:y}{c=1}}");
}

TEST(PmlText, ColonRuleKnowsNoQuotes) {
    EXPECT_EQ(shownText("a(x:\"y)z\")"), "{a=x:\"y}");
    EXPECT_EQ(shownText("a(\"x\":y\")"), "{a=x:y\"}");
}

TEST(PmlText, SequenceOfUnitsIsLinked) {
    Unit const unit = parsed("a(1)b(2)c(3)");
    EXPECT_EQ(shown(unit), "{a=1}{b=2}{c=3}");
    EXPECT_FALSE(unit.next()->next()->next());
    EXPECT_EQ(unit.next()->id(), 0);
}

TEST(PmlText, StopMarkFailsTheFirstUnitAndSilentlyEndsTheRest) {
    EXPECT_EQ(failure(")"), "invalid pml: extra )");
    EXPECT_EQ(failure("abc)"), "invalid pml: extra )");
    EXPECT_EQ(failure("a b )c(1)"), "invalid pml: extra )");
    EXPECT_EQ(failure("a:b)"), "invalid pml: extra )");
    EXPECT_EQ(shownText("a(1) )"), "{a=1}");
    EXPECT_EQ(shownText("a(1))b(2)"), "{a=1}");
    EXPECT_EQ(shownText("a(1)b)c(2)"), "{a=1}");
    EXPECT_EQ(shownText("a(1)b:c)d(2)"), "{a=1}");
}

TEST(PmlText, TopLevelColonWithoutValueFailsWithExtraEnd) {
    Unit unit;
    EXPECT_THROW(unit.decode("a:b)"), std::invalid_argument);
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.value(), ":b");
}

TEST(PmlText, FailureTexts) {
    EXPECT_EQ(failure("   "), "empty for pml unit");
    EXPECT_EQ(failure("abc"), "empty after pml name");
    EXPECT_EQ(failure("abc  "), "empty after pml name");
    EXPECT_EQ(failure("a:"), "no pml type");
    EXPECT_EQ(failure("a: (*c*)"), "no pml type");
    EXPECT_EQ(failure("a:int"), "no pml value");
    EXPECT_EQ(failure("a:int "), "no pml value");
    EXPECT_EQ(failure("a("), "no pml value end tag");
    EXPECT_EQ(failure("a( "), "no pml value end tag");
    EXPECT_EQ(failure("a(1"), "no pml value end tag");
    EXPECT_EQ(failure("a(b(1)"), "no pml value end tag");
    EXPECT_EQ(failure("a(b("), "no pml value end tag");
    EXPECT_EQ(failure("a(b:"), "no pml type");
    EXPECT_EQ(failure("a(b:c"), "no pml value");
    EXPECT_EQ(failure("a(\"x"), "no pml value end tag");
    EXPECT_EQ(failure("a(\"x^"), "no pml value end tag");
    EXPECT_EQ(failure("a(\"x^\""), "no pml value end tag");
    EXPECT_EQ(failure("a(\"x\""), "no pml value end tag");
    EXPECT_EQ(failure("a(1) b"), "empty after pml name");
    EXPECT_EQ(failure("a(1) b("), "no pml value end tag");
}

TEST(PmlText, FailurePositions) {
    EXPECT_EQ(site("   "), "pml::decodeUnit(vinta_pml_unit.cpp");
    EXPECT_EQ(site("abc"), "pml::decodeUnit(vinta_pml_unit.cpp");
    EXPECT_EQ(site("a:"), "pml::decodeUnit(vinta_pml_unit.cpp");
    EXPECT_EQ(site("a:int"), "pml::decodeUnit(vinta_pml_unit.cpp");
    EXPECT_EQ(site("a("), "pml::decodeUnit(vinta_pml_unit.cpp");
    EXPECT_EQ(site("a(1"), "pml::decodeValue(vinta_pml_unit.cpp");
    EXPECT_EQ(site("a(b(1)"), "pml::decodeValue(vinta_pml_unit.cpp");
    EXPECT_EQ(site(")"), "Unit::decode(vinta_pml_unit.cpp");
}

TEST(PmlText, FailureIsLoggedOnceAtErrorUnderTheDefaultTag) {
    tav_test::LogCapture log("clear(ERROR)");
    EXPECT_EQ(failure("abc"), "empty after pml name");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::ERROR);
    EXPECT_TRUE(log.contains("[TAV]pml::decodeUnit(vinta_pml_unit.cpp:"));
    EXPECT_TRUE(log.contains(") <EXCEPTION> empty after pml name\n"));
}

TEST(PmlText, FailureIsNotLoggedAboveError) {
    tav_test::LogCapture log("clear(OUT)");
    EXPECT_EQ(failure("abc"), "empty after pml name");
    EXPECT_TRUE(log.records().empty());
}

TEST(PmlText, WritesTheWorkedExample) {
    EXPECT_EQ(person().toPml(), "person(name:string(Ann)age:int32(30)addr(city(Oslo)))");
    EXPECT_EQ(person().toFormatted(),
              "\nperson(\n    name:string(Ann)\n    age:int32(30)\n    addr(city(Oslo))\n)");
}

TEST(PmlText, FullFormHasIdsAndStartsOneLevelDeeper) {
    Unit unit = person();
    unit.id(1);
    unit.child("years", "age", 2);
    EXPECT_EQ(unit.toFullFormatted(), "\n    [1]person("
                                      "\n        [0]name:string(Ann)"
                                      "\n        [2]age(*years*):int32(30)"
                                      "\n        [0]addr([0]city(Oslo))"
                                      "\n    )");
}

TEST(PmlText, CommentIsWrittenWithIdAndFormatOnly) {
    Unit unit(tav_istr("r"));
    unit.child("note", "a", 1);
    unit.child("b");
    EXPECT_EQ(unit.encode(false, false, 0, true, false), "r(a()b())");
    EXPECT_EQ(unit.encode(false, false, 0, true, true), "[0]r([1]a()[0]b())");
    EXPECT_EQ(unit.encode(true, false, 0, true, false), "\nr(\n    a()\n    b()\n)");
    EXPECT_EQ(unit.encode(true, false, 0, true, true), "\n[0]r(\n    [1]a(*note*)()\n    [0]b()\n)");
}

TEST(PmlText, CommentOfALoneChildIsNeverWritten) {
    Unit unit(tav_istr("r"));
    unit.child("note", "a", 1).value("1");
    EXPECT_EQ(unit.toFullFormatted(), "\n    [0]r([1]a(1))");
}

TEST(PmlText, EmptyValueIsWrittenAsBrackets) {
    EXPECT_EQ(Unit(tav_istr("a")).toPml(), "a()");
    EXPECT_EQ(Unit().toPml(), "()");
}

TEST(PmlText, TypeIsWrittenOnDemand) {
    Unit const unit(tav_istr("a"), tav_istr("t"), tav_istr("v"));
    EXPECT_EQ(unit.toCompacted(false, true), "a:t(v)");
    EXPECT_EQ(unit.toCompacted(false, false), "a(v)");
}

TEST(PmlText, ToStringChoosesTheForm) {
    Unit unit = person();
    unit.child("none");
    EXPECT_EQ(unit.toFormatted(), unit.toString(true, true, false));
    EXPECT_EQ(unit.toCompacted(true, false), unit.toString(false, true, false));
    EXPECT_EQ(unit.toString(false, true, false), "person(name(Ann)age(30)addr(city(Oslo)))");
    EXPECT_EQ(unit.toPml(), unit.toString(false, false, true));
}

TEST(PmlText, InsertionPrintsTheTypedLine) {
    std::ostringstream out;
    out << person();
    EXPECT_EQ(person().toPml(), out.str());
}

TEST(PmlText, EncodeAppends) {
    std::string out = "x";
    Unit(tav_istr("a")).encode(out, false, false, 0, true, false);
    EXPECT_EQ(out, "xa()");
}

TEST(PmlText, EncodeWritesTheWholeSequence) {
    EXPECT_EQ(parsed("a(1)b(2)c(3)").toPml(), "a(1)b(2)c(3)");
    EXPECT_EQ(parsed("a(1)b(2)").toFormatted(), "\na(1)\nb(2)");
    Unit unit = parsed("a(1)b()c(3)");
    EXPECT_EQ(unit.toCompacted(true, true), "a(1)c(3)");
}

TEST(PmlText, SequenceBelowTheTopIsNotWritten) {
    Unit unit(tav_istr("r"));
    unit.child("a").createNext()->name("n");
    EXPECT_EQ(unit.toPml(), "r(a())");
}

TEST(PmlText, LevelIndentsByFourBlanks) {
    EXPECT_EQ(parsed("a(1)").encode(true, false, 2, true, false), "\n        a(1)");
    EXPECT_EQ(parsed("a(1)").encode(true, false, -3, true, false), "\na(1)");
    EXPECT_EQ(parsed("a(1)").encode(false, false, 2, true, false), "a(1)");
}

TEST(PmlText, SkipEmptyLeavesOutUnitsWithoutChildrenAndValue) {
    EXPECT_EQ(Unit(tav_istr("a")).toCompacted(true, true), "");
    EXPECT_EQ(parsed("a(b(1)c())").toCompacted(true, true), "a(b(1))");
}

TEST(PmlText, SkipEmptyStillWritesAParentWhoseChildrenAreSkipped) {
    EXPECT_EQ(parsed("a(b()c())").toCompacted(true, true), "a()");
    EXPECT_EQ(parsed("a(d(b()c())e())").toCompacted(true, true), "a(d())");
}

TEST(PmlText, SkipEmptyWritesALoneEmptyChild) {
    EXPECT_EQ(parsed("a(b())").toCompacted(true, true), "a(b())");
}

TEST(PmlText, LoneChildIsWrittenOnTheLineOfItsParent) {
    EXPECT_EQ(parsed("a(b(1))").toFormatted(), "\na(b(1))");
    EXPECT_EQ(parsed("a(b(c(1)))").toFormatted(), "\na(\n    b(c(1))\n)");
    EXPECT_EQ(parsed("a(b(1)v)").toFormatted(), "\na(\n    b(1)\n    __value__(v)\n)");
}

TEST(PmlText, OwnValueNextToChildrenIsWrittenAsAFurtherChild) {
    EXPECT_EQ(parsed("a(b(1) rest)").toPml(), "a(b(1)__value__(rest))");
    EXPECT_EQ(parsed("a(b(1)v)").encode(false, false, 0, true, true), "[0]a([0]b(1)[0]__value__(v))");
    EXPECT_EQ(parsed("a(b()v)").toCompacted(true, true), "a(__value__(v))");
    EXPECT_EQ(parsed("a(b()x:y)").toCompacted(true, true), "a(__value__(\"x:y\"))");
    Unit const back = parsed("a(b(1)__value__(rest))");
    EXPECT_EQ(back.value(), "");
    EXPECT_EQ(back.child("__value__").value(), "rest");
}

TEST(PmlText, NamesAndTypesAreNeverEscaped) {
    EXPECT_EQ(Unit(tav_istr("a b"), tav_istr("(c)"), tav_istr("1")).toPml(), "a b:(c)(1)");
}

TEST(PmlText, ChildrenOfNewChildAreWrittenLikeAnyOther) {
    Unit unit(tav_istr("list"));
    unit.newChild().value("1");
    unit.newChild().value("2");
    EXPECT_EQ(unit.toPml(), "list((1)(2))");
    EXPECT_EQ(shownText(unit.toPml()), "{list={=1}{=2}}");
}

TEST(PmlText, IdIsWrittenInDecimal) {
    EXPECT_EQ(Unit(-2147483647 - 1).encode(false, false, 0, true, true), "[-2147483648]()");
    EXPECT_EQ(Unit(2147483647).encode(false, false, 0, true, true), "[2147483647]()");
}

TEST(PmlText, CharacterClasses) {
    for (int i = 0; i < 256; ++i) {
        char const c = static_cast<char>(i);
        EXPECT_EQ(i != 0 && std::string("^\"'").find(c) != std::string::npos, tav::pml::isEscapeChar(c)) << i;
        EXPECT_EQ(i != 0 && std::string(":()*^\"'").find(c) != std::string::npos, tav::pml::isSpecialChar(c))
            << i;
    }
}

TEST(PmlText, EscapeQuotesOnlyWhereNeeded) {
    EXPECT_EQ(escaped(""), "");
    EXPECT_EQ(escaped("abc"), "abc");
    EXPECT_EQ(escaped("x y"), "x y");
    EXPECT_EQ(escaped("a:b"), "\"a:b\"");
    EXPECT_EQ(escaped("say \"hi\""), "\"say ^\"hi^\"\"");
    EXPECT_EQ(escaped("1^2"), "\"1^^2\"");
    EXPECT_EQ(escaped("it's"), "\"it^'s\"");
    EXPECT_EQ(escaped("(*)"), "\"(*)\"");
    EXPECT_EQ(escaped("^"), "\"^^\"");
    for (char const * blank : {" ", "\t", "\r", "\n"}) {
        EXPECT_EQ("\"" + std::string(blank) + "x\"", escaped(std::string(blank) + "x"));
        EXPECT_EQ("\"x" + std::string(blank) + "\"", escaped("x" + std::string(blank)));
        EXPECT_EQ("\"" + std::string(blank) + "\"", escaped(blank));
        EXPECT_EQ("x" + std::string(blank) + "y", escaped("x" + std::string(blank) + "y"));
    }
    EXPECT_EQ(escaped("\vx\f"), "\vx\f");
}

TEST(PmlText, EscapeAndUnescapeAppend) {
    std::string out = "x";
    tav::pml::escape(out, "a:b");
    EXPECT_EQ(out, "x\"a:b\"");
    tav::pml::escape(out, tav_istr());
    tav::pml::unescape(out, "'c'");
    EXPECT_EQ(out, "x\"a:b\"c");
}

TEST(PmlText, UnescapeTakesOffAMatchingPairOfQuotes) {
    EXPECT_EQ(unescaped(""), "");
    EXPECT_EQ(unescaped("a"), "a");
    EXPECT_EQ(unescaped("\""), "\"");
    EXPECT_EQ(unescaped("\"\""), "");
    EXPECT_EQ(unescaped("\"a\""), "a");
    EXPECT_EQ(unescaped("'a'"), "a");
    EXPECT_EQ(unescaped("\"a'"), "\"a'");
    EXPECT_EQ(unescaped("a^b"), "a^b");
    EXPECT_EQ(unescaped("^a^"), "^a^");
    EXPECT_EQ(unescaped("\"a^\"b\""), "a\"b");
    EXPECT_EQ(unescaped("'^^^^'"), "^^");
    EXPECT_EQ(unescaped("'a^b'"), "ab");
}

TEST(PmlText, ValuesComeBackAsWritten) {
    for (std::string const & value :
         {std::string("plain"), std::string("x y"), std::string(" x"), std::string("x "), std::string("a:b"),
          std::string("(*no*)"), std::string("\"'^"), std::string("a)b(c"), std::string("  two  "),
          std::string("\n"), std::string("\x80\xff")}) {
        Unit const unit(tav_istr("v"), tav_istr(value));
        EXPECT_EQ(value, parsed(unit.toPml()).value()) << value;
    }
    EXPECT_EQ(Unit(tav_istr("v"), tav_istr("x y")).toPml(), "v(x y)");
    EXPECT_EQ(Unit(tav_istr("v"), tav_istr(" x")).toPml(), "v(\" x\")");
}

TEST(PmlText, RunsOfBlanksWithinAPlainValueComeBackAsOneSpace) {
    EXPECT_EQ(Unit(tav_istr("v"), tav_istr("x  y")).toPml(), "v(x  y)");
    EXPECT_EQ(parsed("v(x  y)").value(), "x y");
    EXPECT_EQ(parsed(Unit(tav_istr("v"), tav_istr("x\ty")).toPml()).value(), "x y");
    EXPECT_EQ(parsed(Unit(tav_istr("v"), tav_istr("x\ny")).toPml()).value(), "x y");
}

TEST(PmlText, ValueWithNulIsCutOnTheWayBack) {
    Unit const unit(tav_istr("v"), tav_istr("x\0y", 3u));
    EXPECT_EQ(unit.toPml(), std::string("v(x\0y)", 6));
    EXPECT_EQ(failure(unit.toPml()), "no pml value end tag");
}

TEST(PmlText, TwoChildrenOfOneNameAreBothKept) {
    Unit const unit = parsed("a(b(1)b(2))");
    EXPECT_EQ(unit.size(), 2u);
    EXPECT_EQ(unit.child("b").value(), "1");
    EXPECT_EQ(unit.children("b").size(), 2u);
}

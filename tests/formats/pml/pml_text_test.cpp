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
    EXPECT_EQ("{a=1}", shownText("a(1)"));
    EXPECT_EQ("{a:int32=1}", shownText("a:int32(1)"));
    EXPECT_EQ("{a={b=1}{c=2}}", shownText("a(b(1)c(2))"));
    EXPECT_EQ("{a=rest{b=1}{c=2}}", shownText("a(b(1)c(2) rest)"));
    EXPECT_EQ("{a=x:y}", shownText("a(x:y)"));
    EXPECT_EQ("{a={p:int=1}}", shownText("a(p:int(1))"));
    EXPECT_EQ("{a=x:y}", shownText("a(\"x:y\")"));
    EXPECT_EQ("{a=it's}", shownText("a('it^'s')"));
    EXPECT_EQ("{a=1}{b=2}", shownText("a(1)(*note*)b(2)"));
    EXPECT_EQ("{a=}", shownText("a()"));
    EXPECT_EQ("{=1}", shownText("(1)"));
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
    EXPECT_EQ("{n=v}", shown(unit));
}

TEST(PmlText, DecodeAppendsToWhatTheUnitHolds) {
    Unit unit(tav_istr("n"), tav_istr("t"), tav_istr("v"));
    unit.decode("a:b(c)");
    EXPECT_EQ("{na:tb=vc}", shown(unit));
}

TEST(PmlText, TextEndsAtItsSizeOrAtTheFirstNul) {
    Unit unit;
    unit.decode(tav_istr("a(1)b(2)", 4u));
    EXPECT_EQ("{a=1}", shown(unit));
    EXPECT_EQ("{a=1}", shownText(std::string("a(1)\0b(", 7)));
    EXPECT_EQ("no pml value end tag", failure(std::string("a(1\0)", 5)));
    EXPECT_EQ("empty for pml unit", failure(std::string("\0", 1)));
    EXPECT_EQ("empty for pml unit", failure(std::string("\0a(1)", 5)));
}

TEST(PmlText, FourBytesAreBlank) {
    EXPECT_EQ("{a=1}", shownText(" \t\r\na \t\r\n( \t\r\n1)"));
    EXPECT_EQ("{a=x y}", shownText("a(x\t\r\n y)"));
    EXPECT_EQ("{a=x\vy\f}", shownText("a(x\vy\f)"));
}

TEST(PmlText, CommentsStandBetweenAnyTokens) {
    EXPECT_EQ("{a:t={b=1}}", shownText("(*0*)a(*1*):(*2*)t(*3*)((*4*)b(*5*)((*6*)1(*7*))(*8*))(*9*)"));
    EXPECT_EQ("{a=1}{b=2}", shownText("a(1) (*x*) (*y*) b(2)"));
}

TEST(PmlText, CommentsDoNotNest) {
    EXPECT_EQ("invalid pml: extra )", failure("(*x(*y*)*)a(1)"));
    EXPECT_EQ("{*a=1}", shownText("(*x(*y*)*a(1)"));
}

TEST(PmlText, CommentOpenedByThreeBytesIsNotClosedByThem) {
    EXPECT_EQ("empty for pml unit", failure("(*)"));
    EXPECT_EQ("{a=1}", shownText("(*)x*)a(1)"));
    EXPECT_EQ("{a=1}", shownText("(**)a(1)"));
}

TEST(PmlText, UnterminatedCommentSwallowsTheRest) {
    EXPECT_EQ("empty for pml unit", failure("(*a(1)"));
    EXPECT_EQ("empty after pml name", failure("a(*b(1)"));
    EXPECT_EQ("no pml value end tag", failure("a(1(*)"));
    EXPECT_EQ("{a=1}", shownText("a(1)(*rest"));
}

TEST(PmlText, NameWordsAreJoined) {
    EXPECT_EQ("{abcd=1}", shownText("ab cd(1)"));
    EXPECT_EQ("{abcd=1}", shownText("ab(*x*)cd  (1)"));
    EXPECT_EQ("{a\"b=1}", shownText("a\"b(1)"));
}

TEST(PmlText, NameMayBeEmpty) {
    EXPECT_EQ("{:t=1}", shownText(":t(1)"));
    EXPECT_EQ("{={=1}}", shownText("((1))"));
}

TEST(PmlText, BlanksInATypeBecomeOneSpace) {
    EXPECT_EQ("{a:int32 =1}", shownText("a : int32 (1)"));
    EXPECT_EQ("{a:x y =1}", shownText("a:  x \t y\n(1)"));
    EXPECT_EQ("{a:xy=1}", shownText("a:x(*c*)y(*d*)(1)"));
    EXPECT_EQ("{a=1}", shownText("a:(1)"));
    EXPECT_EQ("{a:b:c=1}", shownText("a:b:c(1)"));
}

TEST(PmlText, BlanksInBareTextBecomeOneSpaceAndStayAheadOfTheEnd) {
    EXPECT_EQ("{a=x y }", shownText("a(  x   y  )"));
    EXPECT_EQ("{a=}", shownText("a(   )"));
    EXPECT_EQ("{a=x }", shownText("a((*c*) x )"));
}

TEST(PmlText, ACommentAloneMakesNoSpace) {
    EXPECT_EQ("{a=xy}", shownText("a(x(*c*)y)"));
    EXPECT_EQ("{a=x y}", shownText("a(x (*c*)y)"));
    EXPECT_EQ("{a=x y}", shownText("a(x(*c*) y)"));
    EXPECT_EQ("{a=x y}", shownText("a(x (*c*) (*d*) y)"));
}

TEST(PmlText, StarsAndCaretsAreBareText) {
    EXPECT_EQ("{a=x*y^z*}", shownText("a(x*y^z*)"));
}

TEST(PmlText, QuotedTextIsAppendedWithoutQuotesAndCarets) {
    EXPECT_EQ("{a= x (y) }", shownText("a(\" x (y) \")"));
    EXPECT_EQ("{a=\"^'}", shownText("a(\"^\"^^^'\")"));
    EXPECT_EQ("{a=x\"y}", shownText("a('x\"y')"));
    EXPECT_EQ("{a=x'y}", shownText("a(\"x'y\")"));
    EXPECT_EQ("{a=}", shownText("a(\"\")"));
    EXPECT_EQ("{a=(*no*)}", shownText("a(\"(*no*)\")"));
    EXPECT_EQ("{a=x  y}", shownText("a(\"x  y\")"));
}

TEST(PmlText, QuotesStandSideBySide) {
    EXPECT_EQ("{a=xy}", shownText("a(\"x\" \"y\")"));
    EXPECT_EQ("{a=xy}", shownText("a(\"x\"'y')"));
    EXPECT_EQ("{a=x y}", shownText("a(\"x\" \" y\")"));
}

TEST(PmlText, BareWordAgainstAQuoteIsDropped) {
    EXPECT_EQ("{a=c}", shownText("a(b\"c\")"));
    EXPECT_EQ("{a=x c}", shownText("a(x b\"c\")"));
    EXPECT_EQ("{a=b c}", shownText("a(b \"c\")"));
    EXPECT_EQ("{a=bc}", shownText("a(b(*x*)\"c\")"));
}

TEST(PmlText, BlanksBehindAQuoteOrAChildAreSkipped) {
    EXPECT_EQ("{a=cd}", shownText("a(\"c\"  d)"));
    EXPECT_EQ("{a=c}", shownText("a(\"c\"  )"));
    EXPECT_EQ("{a={b=1}}", shownText("a(b(1)  )"));
    EXPECT_EQ("{a=d {b=1}}", shownText("a(b(1)  d )"));
}

TEST(PmlText, AllBareTextSoFarNamesTheChild) {
    EXPECT_EQ("{a={text b=1}}", shownText("a(text b(1))"));
    EXPECT_EQ("{a={text b=1}}", shownText("a(text   b  (1))"));
    EXPECT_EQ("{a={q b:t=1}}", shownText("a(\"q \" b :t(1))"));
    EXPECT_EQ("{a={q=1}}", shownText("a(\"q \"(1))"));
    EXPECT_EQ("{a={=1}{=2}}", shownText("a((1)(2))"));
}

TEST(PmlText, AChildEndsTheValueGatheredAheadOfIt) {
    EXPECT_EQ("{a=z{x=1}{y=2}}", shownText("a(x(1)y(2)z)"));
    EXPECT_EQ("{a={vx=1}}", shownText("a(\"v\" x(1))"));
}

TEST(PmlText, ColonWithoutATypeJoinsTheValue) {
    EXPECT_EQ("{a=b:c}", shownText("a(b:c)"));
    EXPECT_EQ("{a={b:c=1}}", shownText("a(b:c(1))"));
    EXPECT_EQ("{a=x:z}", shownText("a(x:y z)"));
    EXPECT_EQ("{a=x:}", shownText("a(x:)"));
    EXPECT_EQ("{a=:y}", shownText("a(:y)"));
    EXPECT_EQ("{a=x :y}", shownText("a(x : y)"));
    EXPECT_EQ("{a=x:y:z}", shownText("a(x:y:z)"));
    EXPECT_EQ("{a=x:}", shownText("a(x:y )"));
    EXPECT_EQ("{a=x:y{b=1}}", shownText("a(b(1)x:y)"));
    EXPECT_EQ("{a={b=x:y}{c=1}}", shownText("a(b(x:y)c(1))"));
}

TEST(PmlText, ColonRuleKnowsNoQuotes) {
    EXPECT_EQ("{a=x:\"y}", shownText("a(x:\"y)z\")"));
    EXPECT_EQ("{a=x:y\"}", shownText("a(\"x\":y\")"));
}

TEST(PmlText, SequenceOfUnitsIsLinked) {
    Unit const unit = parsed("a(1)b(2)c(3)");
    EXPECT_EQ("{a=1}{b=2}{c=3}", shown(unit));
    EXPECT_FALSE(unit.next()->next()->next());
    EXPECT_EQ(0, unit.next()->id());
}

TEST(PmlText, StopMarkFailsTheFirstUnitAndSilentlyEndsTheRest) {
    EXPECT_EQ("invalid pml: extra )", failure(")"));
    EXPECT_EQ("invalid pml: extra )", failure("abc)"));
    EXPECT_EQ("invalid pml: extra )", failure("a b )c(1)"));
    EXPECT_EQ("invalid pml: extra )", failure("a:b)"));
    EXPECT_EQ("{a=1}", shownText("a(1) )"));
    EXPECT_EQ("{a=1}", shownText("a(1))b(2)"));
    EXPECT_EQ("{a=1}", shownText("a(1)b)c(2)"));
    EXPECT_EQ("{a=1}", shownText("a(1)b:c)d(2)"));
}

TEST(PmlText, TopLevelColonWithoutValueFailsWithExtraEnd) {
    Unit unit;
    EXPECT_THROW(unit.decode("a:b)"), std::invalid_argument);
    EXPECT_EQ("a", unit.name());
    EXPECT_EQ(":b", unit.value());
}

TEST(PmlText, FailureTexts) {
    EXPECT_EQ("empty for pml unit", failure("   "));
    EXPECT_EQ("empty after pml name", failure("abc"));
    EXPECT_EQ("empty after pml name", failure("abc  "));
    EXPECT_EQ("no pml type", failure("a:"));
    EXPECT_EQ("no pml type", failure("a: (*c*)"));
    EXPECT_EQ("no pml value", failure("a:int"));
    EXPECT_EQ("no pml value", failure("a:int "));
    EXPECT_EQ("no pml value end tag", failure("a("));
    EXPECT_EQ("no pml value end tag", failure("a( "));
    EXPECT_EQ("no pml value end tag", failure("a(1"));
    EXPECT_EQ("no pml value end tag", failure("a(b(1)"));
    EXPECT_EQ("no pml value end tag", failure("a(b("));
    EXPECT_EQ("no pml type", failure("a(b:"));
    EXPECT_EQ("no pml value", failure("a(b:c"));
    EXPECT_EQ("no pml value end tag", failure("a(\"x"));
    EXPECT_EQ("no pml value end tag", failure("a(\"x^"));
    EXPECT_EQ("no pml value end tag", failure("a(\"x^\""));
    EXPECT_EQ("no pml value end tag", failure("a(\"x\""));
    EXPECT_EQ("empty after pml name", failure("a(1) b"));
    EXPECT_EQ("no pml value end tag", failure("a(1) b("));
}

TEST(PmlText, FailurePositions) {
    EXPECT_EQ("pml::decodeUnit(vinta_pml_unit.cpp", site("   "));
    EXPECT_EQ("pml::decodeUnit(vinta_pml_unit.cpp", site("abc"));
    EXPECT_EQ("pml::decodeUnit(vinta_pml_unit.cpp", site("a:"));
    EXPECT_EQ("pml::decodeUnit(vinta_pml_unit.cpp", site("a:int"));
    EXPECT_EQ("pml::decodeUnit(vinta_pml_unit.cpp", site("a("));
    EXPECT_EQ("pml::decodeValue(vinta_pml_unit.cpp", site("a(1"));
    EXPECT_EQ("pml::decodeValue(vinta_pml_unit.cpp", site("a(b(1)"));
    EXPECT_EQ("Unit::decode(vinta_pml_unit.cpp", site(")"));
}

TEST(PmlText, FailureIsLoggedOnceAtErrorUnderTheDefaultTag) {
    tav_test::LogCapture log("clear(ERROR)");
    EXPECT_EQ("empty after pml name", failure("abc"));
    ASSERT_EQ(1u, log.records().size());
    EXPECT_EQ(tavLogger::ERROR, log.records()[0].level);
    EXPECT_TRUE(log.contains("[TAV]pml::decodeUnit(vinta_pml_unit.cpp:"));
    EXPECT_TRUE(log.contains(") <EXCEPTION> empty after pml name\n"));
}

TEST(PmlText, FailureIsNotLoggedAboveError) {
    tav_test::LogCapture log("clear(OUT)");
    EXPECT_EQ("empty after pml name", failure("abc"));
    EXPECT_TRUE(log.records().empty());
}

TEST(PmlText, WritesTheWorkedExample) {
    EXPECT_EQ("person(name:string(Ann)age:int32(30)addr(city(Oslo)))", person().toPml());
    EXPECT_EQ("\nperson(\n    name:string(Ann)\n    age:int32(30)\n    addr(city(Oslo))\n)",
              person().toFormatted());
}

TEST(PmlText, FullFormHasIdsAndStartsOneLevelDeeper) {
    Unit unit = person();
    unit.id(1);
    unit.child("years", "age", 2);
    EXPECT_EQ("\n    [1]person("
              "\n        [0]name:string(Ann)"
              "\n        [2]age(*years*):int32(30)"
              "\n        [0]addr([0]city(Oslo))"
              "\n    )",
              unit.toFullFormatted());
}

TEST(PmlText, CommentIsWrittenWithIdAndFormatOnly) {
    Unit unit(tav_istr("r"));
    unit.child("note", "a", 1);
    unit.child("b");
    EXPECT_EQ("r(a()b())", unit.encode(false, false, 0, true, false));
    EXPECT_EQ("[0]r([1]a()[0]b())", unit.encode(false, false, 0, true, true));
    EXPECT_EQ("\nr(\n    a()\n    b()\n)", unit.encode(true, false, 0, true, false));
    EXPECT_EQ("\n[0]r(\n    [1]a(*note*)()\n    [0]b()\n)", unit.encode(true, false, 0, true, true));
}

TEST(PmlText, CommentOfALoneChildIsNeverWritten) {
    Unit unit(tav_istr("r"));
    unit.child("note", "a", 1).value("1");
    EXPECT_EQ("\n    [0]r([1]a(1))", unit.toFullFormatted());
}

TEST(PmlText, EmptyValueIsWrittenAsBrackets) {
    EXPECT_EQ("a()", Unit(tav_istr("a")).toPml());
    EXPECT_EQ("()", Unit().toPml());
}

TEST(PmlText, TypeIsWrittenOnDemand) {
    Unit const unit(tav_istr("a"), tav_istr("t"), tav_istr("v"));
    EXPECT_EQ("a:t(v)", unit.toCompacted(false, true));
    EXPECT_EQ("a(v)", unit.toCompacted(false, false));
}

TEST(PmlText, ToStringChoosesTheForm) {
    Unit unit = person();
    unit.child("none");
    EXPECT_EQ(unit.toFormatted(), unit.toString(true, true, false));
    EXPECT_EQ(unit.toCompacted(true, false), unit.toString(false, true, false));
    EXPECT_EQ("person(name(Ann)age(30)addr(city(Oslo)))", unit.toString(false, true, false));
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
    EXPECT_EQ("xa()", out);
}

TEST(PmlText, EncodeWritesTheWholeSequence) {
    EXPECT_EQ("a(1)b(2)c(3)", parsed("a(1)b(2)c(3)").toPml());
    EXPECT_EQ("\na(1)\nb(2)", parsed("a(1)b(2)").toFormatted());
    Unit unit = parsed("a(1)b()c(3)");
    EXPECT_EQ("a(1)c(3)", unit.toCompacted(true, true));
}

TEST(PmlText, SequenceBelowTheTopIsNotWritten) {
    Unit unit(tav_istr("r"));
    unit.child("a").createNext()->name("n");
    EXPECT_EQ("r(a())", unit.toPml());
}

TEST(PmlText, LevelIndentsByFourBlanks) {
    EXPECT_EQ("\n        a(1)", parsed("a(1)").encode(true, false, 2, true, false));
    EXPECT_EQ("\na(1)", parsed("a(1)").encode(true, false, -3, true, false));
    EXPECT_EQ("a(1)", parsed("a(1)").encode(false, false, 2, true, false));
}

TEST(PmlText, SkipEmptyLeavesOutUnitsWithoutChildrenAndValue) {
    EXPECT_EQ("", Unit(tav_istr("a")).toCompacted(true, true));
    EXPECT_EQ("a(b(1))", parsed("a(b(1)c())").toCompacted(true, true));
}

TEST(PmlText, SkipEmptyStillWritesAParentWhoseChildrenAreSkipped) {
    EXPECT_EQ("a()", parsed("a(b()c())").toCompacted(true, true));
    EXPECT_EQ("a(d())", parsed("a(d(b()c())e())").toCompacted(true, true));
}

TEST(PmlText, SkipEmptyWritesALoneEmptyChild) {
    EXPECT_EQ("a(b())", parsed("a(b())").toCompacted(true, true));
}

TEST(PmlText, LoneChildIsWrittenOnTheLineOfItsParent) {
    EXPECT_EQ("\na(b(1))", parsed("a(b(1))").toFormatted());
    EXPECT_EQ("\na(\n    b(c(1))\n)", parsed("a(b(c(1)))").toFormatted());
    EXPECT_EQ("\na(\n    b(1)\n    __value__(v)\n)", parsed("a(b(1)v)").toFormatted());
}

TEST(PmlText, OwnValueNextToChildrenIsWrittenAsAFurtherChild) {
    EXPECT_EQ("a(b(1)__value__(rest))", parsed("a(b(1) rest)").toPml());
    EXPECT_EQ("[0]a([0]b(1)[0]__value__(v))", parsed("a(b(1)v)").encode(false, false, 0, true, true));
    EXPECT_EQ("a(__value__(v))", parsed("a(b()v)").toCompacted(true, true));
    EXPECT_EQ("a(__value__(\"x:y\"))", parsed("a(b()x:y)").toCompacted(true, true));
    Unit const back = parsed("a(b(1)__value__(rest))");
    EXPECT_EQ("", back.value());
    EXPECT_EQ("rest", back.child("__value__").value());
}

TEST(PmlText, NamesAndTypesAreNeverEscaped) {
    EXPECT_EQ("a b:(c)(1)", Unit(tav_istr("a b"), tav_istr("(c)"), tav_istr("1")).toPml());
}

TEST(PmlText, ChildrenOfNewChildAreWrittenLikeAnyOther) {
    Unit unit(tav_istr("list"));
    unit.newChild().value("1");
    unit.newChild().value("2");
    EXPECT_EQ("list((1)(2))", unit.toPml());
    EXPECT_EQ("{list={=1}{=2}}", shownText(unit.toPml()));
}

TEST(PmlText, IdIsWrittenInDecimal) {
    EXPECT_EQ("[-2147483648]()", Unit(-2147483647 - 1).encode(false, false, 0, true, true));
    EXPECT_EQ("[2147483647]()", Unit(2147483647).encode(false, false, 0, true, true));
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
    EXPECT_EQ("", escaped(""));
    EXPECT_EQ("abc", escaped("abc"));
    EXPECT_EQ("x y", escaped("x y"));
    EXPECT_EQ("\"a:b\"", escaped("a:b"));
    EXPECT_EQ("\"say ^\"hi^\"\"", escaped("say \"hi\""));
    EXPECT_EQ("\"1^^2\"", escaped("1^2"));
    EXPECT_EQ("\"it^'s\"", escaped("it's"));
    EXPECT_EQ("\"(*)\"", escaped("(*)"));
    EXPECT_EQ("\"^^\"", escaped("^"));
    for (char const * blank : {" ", "\t", "\r", "\n"}) {
        EXPECT_EQ("\"" + std::string(blank) + "x\"", escaped(std::string(blank) + "x"));
        EXPECT_EQ("\"x" + std::string(blank) + "\"", escaped("x" + std::string(blank)));
        EXPECT_EQ("\"" + std::string(blank) + "\"", escaped(blank));
        EXPECT_EQ("x" + std::string(blank) + "y", escaped("x" + std::string(blank) + "y"));
    }
    EXPECT_EQ("\vx\f", escaped("\vx\f"));
}

TEST(PmlText, EscapeAndUnescapeAppend) {
    std::string out = "x";
    tav::pml::escape(out, "a:b");
    EXPECT_EQ("x\"a:b\"", out);
    tav::pml::escape(out, tav_istr());
    tav::pml::unescape(out, "'c'");
    EXPECT_EQ("x\"a:b\"c", out);
}

TEST(PmlText, UnescapeTakesOffAMatchingPairOfQuotes) {
    EXPECT_EQ("", unescaped(""));
    EXPECT_EQ("a", unescaped("a"));
    EXPECT_EQ("\"", unescaped("\""));
    EXPECT_EQ("", unescaped("\"\""));
    EXPECT_EQ("a", unescaped("\"a\""));
    EXPECT_EQ("a", unescaped("'a'"));
    EXPECT_EQ("\"a'", unescaped("\"a'"));
    EXPECT_EQ("a^b", unescaped("a^b"));
    EXPECT_EQ("^a^", unescaped("^a^"));
    EXPECT_EQ("a\"b", unescaped("\"a^\"b\""));
    EXPECT_EQ("^^", unescaped("'^^^^'"));
    EXPECT_EQ("ab", unescaped("'a^b'"));
}

TEST(PmlText, ValuesComeBackAsWritten) {
    for (std::string const & value :
         {std::string("plain"), std::string("x y"), std::string(" x"), std::string("x "), std::string("a:b"),
          std::string("(*no*)"), std::string("\"'^"), std::string("a)b(c"), std::string("  two  "),
          std::string("\n"), std::string("\x80\xff")}) {
        Unit const unit(tav_istr("v"), tav_istr(value));
        EXPECT_EQ(value, parsed(unit.toPml()).value()) << value;
    }
    EXPECT_EQ("v(x y)", Unit(tav_istr("v"), tav_istr("x y")).toPml());
    EXPECT_EQ("v(\" x\")", Unit(tav_istr("v"), tav_istr(" x")).toPml());
}

TEST(PmlText, RunsOfBlanksWithinAPlainValueComeBackAsOneSpace) {
    EXPECT_EQ("v(x  y)", Unit(tav_istr("v"), tav_istr("x  y")).toPml());
    EXPECT_EQ("x y", parsed("v(x  y)").value());
    EXPECT_EQ("x y", parsed(Unit(tav_istr("v"), tav_istr("x\ty")).toPml()).value());
    EXPECT_EQ("x y", parsed(Unit(tav_istr("v"), tav_istr("x\ny")).toPml()).value());
}

TEST(PmlText, ValueWithNulIsCutOnTheWayBack) {
    Unit const unit(tav_istr("v"), tav_istr("x\0y", 3u));
    EXPECT_EQ(std::string("v(x\0y)", 6), unit.toPml());
    EXPECT_EQ("no pml value end tag", failure(unit.toPml()));
}

TEST(PmlText, TwoChildrenOfOneNameAreBothKept) {
    Unit const unit = parsed("a(b(1)b(2))");
    EXPECT_EQ(2u, unit.size());
    EXPECT_EQ("1", unit.child("b").value());
    EXPECT_EQ(2u, unit.children("b").size());
}

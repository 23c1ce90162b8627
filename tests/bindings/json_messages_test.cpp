#include "bindings/json_rig.h"

#include <cstdlib>
#include <tuple>
#include <vector>

using namespace tav_test;

namespace {

Json encode(Json const & message) {
    return execute({{"@type", "encode"}, {"template", chat}, {"class", "chat.Say"}, {"message", message}});
}

/// What comes back of a message.
Json roundTrip(Json const & message) {
    Json const made = encode(message);
    return execute({{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", made["body"]}});
}

Json whole() {
    return {{"text", "hello"}, {"tags", {"a", "b"}}, {"votes", {{"ann", 2}}}};
}

Json with(char const * name, Json const & value) {
    Json out = whole();
    out[name] = value;
    return out;
}

/// The field that an error blames.
std::string blamed(Json const & answer) {
    return answer["@type"] == "error" ? answer["name"].get<std::string>() + " " + answer.value("field", "")
                                      : answer.dump();
}

/// A request, and the text of its refusal.
struct Refused {
    Json request;
    char const * text;
};

void expectRefused(std::vector<Refused> const & all) {
    for (Refused const & each : all) {
        EXPECT_EQ(execute(each.request).value("text", ""), each.text) << each.request;
    }
}

/// Reads a request without carrying it out.
Json checked(Json const & request) {
    return {{"@type", "check"}, {"template", chat}, {"request", request}};
}

Json connectWith(char const * name, Json const & value) {
    Json out = {{"@type", "connect"}, {"host", "a"}, {"port", 1}, {"template", chat}};
    out[name] = value;
    return checked(out);
}

Json sendOf(unsigned code, char const * name, Json const & value, char const * type = "send") {
    Json out = {{"@type", type}, {"code", code}, {"body", ""}};
    out[name] = value;
    return checked(out);
}

} // namespace

TEST(JsonMessages, EncodeIsWhatTheTemplateMakes) {
    Json const made = encode({{"text", "hi"}});
    EXPECT_EQ(made["@type"], "encoded");
    EXPECT_EQ(made["code"], 0x3001);
    EXPECT_EQ(made["class"], "chat.Say");
    Json const again = execute({{"@type", "encode"},
                                {"template", chat},
                                {"class", "chat.Say"},
                                {"message", {{"text", "hi"}}},
                                {"as", "hex"}});
    Json const back = execute({{"@type", "decode"},
                               {"template", chat},
                               {"class", "chat.Say"},
                               {"body", again["body"]},
                               {"as", "hex"}});
    EXPECT_EQ(back["message"], (Json{{"text", "hi"}})) << again;
}

TEST(JsonMessages, EveryFieldKindComesBack) {
    Json message = whole();
    message["mood"] = -128;
    message["place"] = {{"city", "Utrecht"}, {"latitude", 52.09}};
    message["file"] = "AAECAw==";
    message["big"] = "9223372036854775807";
    message["sure"] = true;
    message["kind"] = 1;
    message["age"] = 150;
    message["ratio"] = -0.5;
    message["numbers"] = {{"7", "seven"}};
    message["places"] = {{{"city", "a"}}, {{"city", "b"}}};
    Json const back = roundTrip(message)["message"];
    Json expected = message;
    expected["votes"] = {{"ann", "2"}};
    EXPECT_EQ(back, expected);
}

TEST(JsonMessages, TextsKeepEveryCharacter) {
    std::string const text = std::string("\x01 \x1f \x7f \" \\ / ' \b\f\n\r\t { } [ ] , : null ") +
                             std::string(1, '\0') + " \xc3\xa9 \xf0\x9f\x98\x80 \xef\xbf\xbf";
    Json const message = {{"text", text}, {"tags", {text, ""}}};
    EXPECT_EQ(roundTrip(message)["message"], message);
}

TEST(JsonMessages, EscapesOfOtherWritersAreCharacters) {
    Json const made = Json::parse(tav_json_execute(
        nullptr, (R"({"@type":"encode","class":"chat.Say","message":{"text":"\u00e9\u0022\u005c\ud83d\ude00)"
                  R"(\u0000\uFFFF\/"},"template":)" +
                  Json(chat).dump() + "}")
                     .c_str()));
    Json const back =
        execute({{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", made["body"]}});
    std::string const expected =
        std::string("\xc3\xa9\"\\\xf0\x9f\x98\x80") + std::string(1, '\0') + "\xef\xbf\xbf/";
    EXPECT_EQ(back["message"]["text"], expected) << made;
}

TEST(JsonMessages, KeysOfMapsAreTextsLikeOthers) {
    std::string const hostile = "x\":1},\"text\":\"evil\",\"m\":{\"y";
    Json const message = {{"text", "good"}, {"votes", {{hostile, "1"}, {"O\"Br\\ien\n", "2"}, {"fa", "3"}}}};
    EXPECT_EQ(roundTrip(message)["message"], message);
}

TEST(JsonMessages, BytesThatAreNoUtf8BecomeReplacementCharacters) {
    // NBR of a Say whose text is FF 41.
    Json const made = encode({{"text", "zA"}});
    Json hex = execute({{"@type", "encode"},
                        {"template", chat},
                        {"class", "chat.Say"},
                        {"message", {{"text", "zA"}}},
                        {"as", "hex"}})["body"];
    std::string bytes = hex;
    ASSERT_NE(bytes.find("7a41"), std::string::npos);
    bytes.replace(bytes.find("7a41"), 4, "ff41");
    Json const back =
        execute({{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", bytes}, {"as", "hex"}});
    EXPECT_EQ(back["message"]["text"], "\xef\xbf\xbd"
                                       "A");
}

TEST(JsonMessages, AValueThatDoesNotFitNamesItsPlace) {
    EXPECT_EQ(blamed(encode(with("mood", 128))), "value_does_not_fit message.mood");
    EXPECT_EQ(blamed(encode(with("mood", 1.5))), "value_does_not_fit message.mood");
    EXPECT_EQ(blamed(encode(with("mood", true))), "value_does_not_fit message.mood");
    EXPECT_EQ(blamed(encode(with("mood", "1"))), "value_does_not_fit message.mood");
    EXPECT_EQ(blamed(encode(with("text", 1))), "value_does_not_fit message.text");
    EXPECT_EQ(blamed(encode(with("text", Json::object()))), "value_does_not_fit message.text");
    EXPECT_EQ(blamed(encode(with("sure", 1))), "value_does_not_fit message.sure");
    EXPECT_EQ(blamed(encode(with("tags", {"a", nullptr}))), "value_does_not_fit message.tags[1]");
    EXPECT_EQ(blamed(encode(with("tags", "a"))), "value_does_not_fit message.tags");
    EXPECT_EQ(blamed(encode(with("votes", {{"ann", "x"}}))), "value_does_not_fit message.votes.ann");
    EXPECT_EQ(blamed(encode(with("place", Json::array()))), "value_does_not_fit message.place");
    EXPECT_EQ(blamed(encode(with("places", {{{"city", 1}}}))), "value_does_not_fit message.places[0].city");
    EXPECT_EQ(blamed(encode(with("big", "9223372036854775808"))), "value_does_not_fit message.big");
    EXPECT_EQ(blamed(encode(with("file", "AAE"))), "value_does_not_fit message.file");
    EXPECT_EQ(blamed(encode(with("age", 151))), "value_does_not_fit message.age");
    EXPECT_EQ(blamed(encode(with("kind", 7))), "value_does_not_fit message.kind");
}

TEST(JsonMessages, ANameThatNoFieldHasIsRefused) {
    EXPECT_EQ(blamed(encode(with("txt", "a"))), "unknown_field message.txt");
    EXPECT_EQ(blamed(encode(with("place", {{"citty", "a"}}))), "unknown_field message.place.citty");
}

TEST(JsonMessages, AMissingFieldIsNamed) {
    Json const answer = encode(Json::object());
    EXPECT_EQ(blamed(answer), "field_missing message.text");
    EXPECT_EQ(answer["text"].get<std::string>().find("throw at"), std::string::npos) << answer;
}

TEST(JsonMessages, AnErrorHasThePositionOfTheValue) {
    std::string const request = R"({"@type":"encode","class":"chat.Say","message":{"text":"a","mood":300},)"
                                R"("template":)" +
                                Json(chat).dump() + "}";
    Json const answer = Json::parse(tav_json_execute(nullptr, request.c_str()));
    EXPECT_EQ(answer["position"], request.find("300")) << answer;
}

TEST(JsonMessages, AClassThatTheTemplateLacksIsNamed) {
    Json const answer =
        execute({{"@type", "encode"}, {"template", chat}, {"class", "chat.No"}, {"message", Json::object()}});
    EXPECT_EQ(blamed(answer), "template_lacks_class class");
    EXPECT_NE(answer["text"].get<std::string>().find("chat.No"), std::string::npos);
    EXPECT_EQ(blamed(execute({{"@type", "encode"}, {"class", "chat.Say"}, {"message", Json::object()}})),
              "template_lacks_class message");
}

TEST(JsonMessages, ATemplateThatCantBeReadIsNamed) {
    Json const answer = execute({{"@type", "encode"}, {"template", "Say:object("}, {"class", "a"}});
    EXPECT_EQ(blamed(answer), "bad_template template");
    EXPECT_EQ(answer["text"].get<std::string>().find("throw at"), std::string::npos) << answer;
    EXPECT_EQ(blamed(execute({{"@type", "encode"}, {"template_file", "/nowhere/x.pml"}, {"class", "a"}})),
              "value_does_not_fit template_file");
}

TEST(JsonMessages, AMessageThatLacksFieldsIsAnError) {
    Json const lacking = execute({{"@type", "encode"},
                                  {"template", "A:object(__class__(A) __code__(3001) [2]mood:int8())"},
                                  {"class", "A"},
                                  {"message", {{"mood", 1}}}});
    Json const answer =
        execute({{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", lacking["body"]}});
    EXPECT_EQ(answer["@type"], "error") << answer;
    EXPECT_EQ(answer["name"], "bad_reply") << answer;
}

TEST(JsonMessages, AnyBytesAsBodyGiveJsonOrAnError) {
    std::string const body = execute({{"@type", "encode"},
                                      {"template", chat},
                                      {"class", "chat.Say"},
                                      {"as", "hex"},
                                      {"message", with("place", {{"city", "u"}})}})["body"];
    unsigned long long state = 88172645463325252ull;
    for (int i = 0; i < 3000; ++i) {
        std::string changed = body;
        for (int n = 0; n < 3; ++n) {
            state ^= state << 13u;
            state ^= state >> 7u;
            state ^= state << 17u;
            changed[state % changed.size()] = "0123456789abcdef"[state >> 60u];
        }
        Json const answer = execute(
            {{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", changed}, {"as", "hex"}});
        ASSERT_TRUE(answer["@type"] == "decoded" || answer["@type"] == "error") << changed;
    }
}

namespace {

char const * const numbers = R"(
    Inner:object(__class__(n.Inner) [1]age:int32?(0{0..150}) [2]mood:enum{Mood}?(a(0) b(1)))
    All:object(
        __class__(n.All) __code__(3001)
        [1]f:float?()
        [2]d:double?()
        [3]fs:list{float}()
        [4]fm:map{string,float}()
        [5]at:time?()
        [6]big:int64?()
        [7]ubig:uint64?()
        [8]ats:list{time}()
        [9]keys:map{int64,int32}()
        [10]ins:list{n.Inner}()
        [11]bigs:map{string,int64}()
    )
)";

Json encodeAll(Json const & message) {
    return execute({{"@type", "encode"}, {"template", numbers}, {"class", "n.All"}, {"message", message}});
}
Json decodeAll(Json const & encoded) {
    return execute(
        {{"@type", "decode"}, {"template", numbers}, {"class", "n.All"}, {"body", encoded["body"]}});
}
std::string raw(std::string const & message) {
    std::string const request = R"({"@type":"encode","class":"n.All","template":)" + Json(numbers).dump() +
                                R"(,"message":)" + message + "}";
    return blamed(Json::parse(tav_json_execute(nullptr, request.c_str())));
}

} // namespace

TEST(JsonMessages, RealNumberThatAFieldDoesNotHoldIsRefused) {
    EXPECT_EQ(raw(R"({"f":1e39})"), "value_does_not_fit message.f");
    EXPECT_EQ(raw(R"({"f":-1e300})"), "value_does_not_fit message.f");
    EXPECT_EQ(raw(R"({"d":1e999})"), "value_does_not_fit message.d");
    EXPECT_EQ(raw(R"({"fs":[1,1e39]})"), "value_does_not_fit message.fs[1]");
    EXPECT_EQ(raw(R"({"fm":{"a":1e39}})"), "value_does_not_fit message.fm.a");
    EXPECT_EQ(raw("{\"f\":1" + std::string(60, '0') + "}"), "value_does_not_fit message.f");
    EXPECT_NE(raw(R"({"f":3e38,"d":1e300})").find("encoded"), std::string::npos);
    // What is too small would be sent as zero.
    EXPECT_EQ(raw(R"({"f":1e-60})"), "value_does_not_fit message.f");
    EXPECT_EQ(raw(R"({"d":-1e-400})"), "value_does_not_fit message.d");
    EXPECT_EQ(raw("{\"d\":0." + std::string(400, '0') + "1}"), "value_does_not_fit message.d");
    EXPECT_NE(raw(R"({"f":1e-45,"d":5e-324})").find("encoded"), std::string::npos);
    EXPECT_NE(raw(R"({"f":0e7,"d":-0.000E-400})").find("encoded"), std::string::npos);
}

TEST(JsonMessages, KeyThatItsMapDoesNotHoldIsRefused) {
    EXPECT_EQ(raw(R"({"keys":{"99999999999999999999":1}})"),
              "value_does_not_fit message.keys.99999999999999999999");
    EXPECT_EQ(raw(R"({"keys":{"9223372036854775808":1}})"),
              "value_does_not_fit message.keys.9223372036854775808");
    EXPECT_EQ(raw(R"({"keys":{"abc":1}})"), "value_does_not_fit message.keys.abc");
    EXPECT_EQ(raw(R"({"keys":{"007":1}})"), "value_does_not_fit message.keys.007");
    EXPECT_EQ(raw(R"({"bigs":{"":1}})"), "value_does_not_fit message.bigs.");
    EXPECT_NE(raw(R"({"keys":{"9223372036854775807":1,"0":2}})").find("encoded"), std::string::npos);
}

TEST(JsonMessages, WhatComesCanBeSentAgain) {
    for (char const * const number :
         {"1700000000000", "-5", "0", "-9223372036854775808", "9223372036854775807"}) {
        Json const message = {
            {"at", number}, {"big", number}, {"ats", {number, "1"}}, {"bigs", {{"a", number}}}};
        Json const made = encodeAll(message);
        ASSERT_EQ(made["@type"], "encoded") << made;
        Json const back = decodeAll(made);
        EXPECT_EQ(back["message"], message);
        EXPECT_EQ(encodeAll(back["message"])["body"], made["body"]);
    }
    EXPECT_EQ(blamed(encodeAll({{"at", "soon"}})), "value_does_not_fit message.at");
    EXPECT_EQ(blamed(encodeAll({{"ubig", "-1"}})), "value_does_not_fit message.ubig");
    EXPECT_EQ(encodeAll({{"ubig", "18446744073709551615"}})["@type"], "encoded");
}

TEST(JsonMessages, FaultsWithinListsNameTheirPlace) {
    EXPECT_EQ(raw(R"({"ins":[{"age":7},{"age":200}]})"), "value_does_not_fit message.ins[1].age");
    EXPECT_EQ(raw(R"({"ins":[{"age":7},{"mood":7}]})"), "value_does_not_fit message.ins[1].mood");
}

namespace {

char const * const kinds = R"(
    Leaf:object(__class__(k.Leaf) [1]name:string())
    All:object(
        __class__(k.All) __code__(3001)
        [1]i8:int8?()
        [2]i64:int64?()
        [3]u64:uint64?()
        [4]f:float?()
        [5]d:double?()
        [6]at:time?()
        [7]b:bytes?()
        [8]fs:list{float}()
        [9]ds:list{double}()
        [10]ats:list{time}()
        [11]by_text:map{string,double}()
        [12]by_number:map{int64,float}()
        [13]by_count:map{uint64,double}()
        [14]by_bytes:map{bytes,int64}()
        [15]leaf:k.Leaf?()
        [16]leaves:map{string,k.Leaf}()
        [17]truth:bool?()
        [18]text:string?()
        [19]by_time:map{time,string}()
    )
)";

Json ofKinds(char const * type, Json more) {
    more.update({{"@type", type}, {"template", kinds}, {"class", "k.All"}});
    return execute(more);
}

Json backOfKinds(Json const & message) {
    Json const made = ofKinds("encode", {{"message", message}});
    return made["@type"] == "encoded" ? ofKinds("decode", {{"body", made["body"]}}) : made;
}

/// What a template is refused for.
std::string fault(std::string const & text) {
    Json const answer =
        execute({{"@type", "encode"}, {"template", text}, {"class", "A"}, {"message", Json::object()}});
    return answer["name"] == "bad_template"
               ? answer.value("field", "") + " " + answer["text"].get<std::string>()
               : answer.dump();
}

} // namespace

TEST(JsonMessages, RealNumbersComeAsTheyAre) {
    for (double const value :
         {52.5200081, 123456789.1, 0.1 + 0.2, 5e-324, 1.7976931348623157e308, -2.5, 0.0, 1e22}) {
        Json const message = {
            {"d", value}, {"ds", {value, 1.5}}, {"by_text", {{"a\"", value}}}, {"by_count", {{"7", value}}}};
        EXPECT_EQ(backOfKinds(message)["message"], message) << value;
    }
    for (char const * const value : {"16777217", "3.4028235e+38", "0.1", "-1e-45", "52.520008"}) {
        float const single = std::strtof(value, nullptr);
        Json const back = backOfKinds({{"f", Json::parse(value)},
                                       {"fs", {Json::parse(value)}},
                                       {"by_number", {{"-1", Json::parse(value)}}}})["message"];
        EXPECT_EQ(back["f"].get<float>(), single) << back;
        EXPECT_EQ(back["fs"][0], back["f"]);
        EXPECT_EQ(back["by_number"]["-1"], back["f"]);
    }
    EXPECT_EQ(backOfKinds({{"f", 0.1}})["message"].dump(), R"({"f":0.1})");
}

TEST(JsonMessages, WhatHasComeEncodesToTheSameBytes) {
    Json const messages[] = {
        {{"i8", -128}, {"i64", "-9223372036854775808"}, {"u64", "18446744073709551615"}, {"at", "-1"}},
        {{"i64", "9223372036854775807"},
         {"at", "1700000000000"},
         {"ats", {"0", "-5", "9223372036854775807"}}},
        {{"f", 3.4028235e38}, {"d", -1.7976931348623157e308}, {"fs", {1.5, -0.25}}, {"ds", {5e-324}}},
        {{"b", "AQID"}, {"by_bytes", {{"fAAA", "-1"}, {"mAAA", "2"}, {"AQ==", "3"}}}, {"truth", true}},
        {{"by_number", {{"-5", 1.5}, {"0", 2}, {"-9223372036854775808", 3}}}, {"by_time", {{"-7", "a"}}}},
        {{"by_count", {{"18446744073709551615", 1e300}}},
         {"by_text", {{"d", 1}, {"a\\\"\n", 2.5}, {"-5", 3}}}},
        {{"leaf", {{"name", "\"\\\x01"}}},
         {"leaves", {{"a", {{"name", "b"}}}, {"c", {{"name", ""}}}}},
         {"text", "t"}},
    };
    for (Json const & message : messages) {
        Json const made = ofKinds("encode", {{"message", message}});
        ASSERT_EQ(made["@type"], "encoded") << made << message;
        Json const back = ofKinds("decode", {{"body", made["body"]}});
        EXPECT_EQ(back["message"], message);
        EXPECT_EQ(ofKinds("encode", {{"message", back["message"]}})["body"], made["body"]);
    }
}

TEST(JsonMessages, KeyOfBytesHasToBeBase64) {
    EXPECT_EQ(blamed(ofKinds("encode", {{"message", {{"by_bytes", {{"5", 1}}}}}})),
              "value_does_not_fit message.by_bytes.5");
}

TEST(JsonMessages, NecessaryFieldsMayLackInNoObject) {
    auto const refused = [](Json const & message) {
        return blamed(ofKinds("encode", {{"message", message}}));
    };
    EXPECT_EQ(refused({{"leaf", Json::object()}}), "field_missing message.leaf.name");
    EXPECT_EQ(refused({{"leaves", {{"a", Json::object()}}}}), "field_missing message.leaves.a.name");
    EXPECT_EQ(refused({{"leaf", {{"name", nullptr}}}}), "field_missing message.leaf.name");
    EXPECT_EQ(refused({{"leaf", {{"nam", "a"}}}}), "unknown_field message.leaf.nam");
    // What may lack and is null is not there.
    EXPECT_EQ(backOfKinds({{"leaf", nullptr}, {"d", nullptr}, {"text", "a"}})["message"],
              (Json{{"text", "a"}}));
}

TEST(JsonMessages, EmptyBodyOfAClassWithNecessaryFieldsIsAnError) {
    Json request = {{"@type", "decode"}, {"template", chat}, {"class", "chat.Say"}, {"body", ""}};
    EXPECT_EQ(nameOf(execute(request)), "bad_reply");
    EXPECT_EQ(ofKinds("decode", {{"body", ""}})["message"], Json::object());
    request["code"] = 0x3002;
    EXPECT_EQ(blamed(execute(request)), "template_lacks_class code");
    request["code"] = "x";
    EXPECT_EQ(blamed(execute(request)), "template_lacks_class code");
}

TEST(JsonMessages, TemplateOfWhichAPartWouldBeLostIsRefused) {
    auto const with = [](std::string const & fields) {
        return "A:object(__class__(A) __code__(3001) " + fields + ")";
    };
    EXPECT_EQ(fault(with("[1]x:string() [1]y:string()")),
              "template class A: field y: the field x has the same tag");
    EXPECT_EQ(fault(with("[1]x:string() [2]x:string()")),
              "template class A: field x: there is another one of this name");
    for (char const * const tag : {"", "[0]", "[200]"}) {
        EXPECT_EQ(fault(with(tag + std::string("x:string()"))),
                  "template class A: field x: it needs a tag from 1 to 127");
    }
    EXPECT_EQ(fault("A:object(__class__(A) __code__(zz) [1]x:string())"),
              "template class A: the code zz is no hexadecimal number of four digits at most");
    EXPECT_EQ(fault(with("[1]x:string()") + " B:object(__class__(B) __code__(0x3001) [1]x:string())"),
              "template class B: the class A has the same code");
    EXPECT_EQ(fault(with("[1]x:strng()")),
              "template class A: field x: there is neither a type nor a class strng");
    EXPECT_EQ(fault(with("[1]x:list{Strng}()")),
              "template class A: field x: there is neither a type nor a class Strng");
    EXPECT_EQ(fault(with("[1]x:object()")),
              "template class A: field x: there is neither a type nor a class ");
    EXPECT_EQ(fault(with("__super__(Nobody) [1]x:string()")),
              "template class A: there is no class Nobody to be its base");
    EXPECT_EQ(fault("B:object(__class__(B) [1]y:string()) " + with("__super__(B) [1]x:string()")),
              "template class A: field x: the field y of its base class has the same tag");
    EXPECT_EQ(fault("B:object(__class__(B) [1]x:string()) " + with("__super__(B) [2]x:string()")),
              "template class A: field x: the field of this name of its base class has another tag");
    EXPECT_NE(fault("B:object(__class__(B) [1]x:string()) " + with("__super__(B) [1]x:string()"))
                  .find("field_missing"),
              std::string::npos);
    EXPECT_EQ(fault(with("[1]x:string()") + " " + with("[1]y:string()")),
              "template class A: there is another one of this name");
    EXPECT_EQ(fault(with("[1]x:string()") + " C:object(__class__(A) __code__(3002) [1]y:string())"),
              "template class A: there is another one of this name");
    std::string const closed = with("[1]x:string()");
    EXPECT_EQ(fault(closed + ") B:object(__class__(B) [1]x:string())"),
              "template byte " + std::to_string(closed.size()) + ": this bracket closes nothing");
    EXPECT_EQ(fault("").substr(0, 9), "template ");
    // None of these is wrong.
    EXPECT_NE(fault(with("[1]x:string(')' {***}) [2]in:object([1]y:string()) "
                         "[3]m:list{Mood}(m:enum{Mood}(a(0) b(1)))"))
                  .find("field_missing"),
              std::string::npos);
}

TEST(JsonMessages, TemplateOfAFileIsBlamedAsSuch) {
    Folder const folder;
    std::string const path = folder.write("a.pml", "A:object(__class__(A) __code__(3001) [1]x:strng())");
    EXPECT_EQ(
        blamed(execute(
            {{"@type", "encode"}, {"template_file", path}, {"class", "A"}, {"message", Json::object()}})),
        "bad_template template_file");
}

TEST(JsonMessages, MessageThatIsNestedTooDeepForReadersIsNotRead) {
    std::string const deep = "T:object(__class__(T) __code__(3001) [1]t:T?())";
    for (std::size_t const depth : {199u, 200u, 201u, 50000u}) {
        std::string message;
        for (std::size_t i = 0; i < depth; ++i) {
            message += "{\"t\":";
        }
        message += "{}" + std::string(depth, '}');
        std::string const request = R"({"@type":"encode","class":"T","template":)" + Json(deep).dump() +
                                    R"(,"message":)" + message + "}";
        Json const made = Json::parse(tav_json_execute(nullptr, request.c_str()));
        ASSERT_EQ(made["@type"], "encoded") << made;
        Json const back =
            execute({{"@type", "decode"}, {"template", deep}, {"class", "T"}, {"body", made["body"]}});
        EXPECT_EQ(nameOf(back), depth <= 200 ? "decoded" : "bad_reply") << depth;
        if (depth > 200) {
            EXPECT_EQ(back["text"], "the message is nested more than 200 deep");
        }
    }
}

TEST(JsonMessages, ListWithinAListIsRefusedByItsPlace) {
    std::string const nested = "A:object(__class__(A) __code__(3001) [1]l:list{list{int32}}() "
                               "[2]m:map{string,list{int32}}() [3]x:int32?() "
                               "[4]z:list{map{string,int32}}())";
    auto const refused = [&](Json const & message) {
        return blamed(
            execute({{"@type", "encode"}, {"template", nested}, {"class", "A"}, {"message", message}}));
    };
    EXPECT_EQ(refused({{"l", Json::array({Json::array({1})})}}), "value_does_not_fit message.l[0]");
    EXPECT_EQ(refused({{"m", {{"a", Json::array({1})}}}}), "value_does_not_fit message.m.a");
    EXPECT_EQ(refused({{"z", Json::array({{{"a", 1}}})}}), "value_does_not_fit message.z[0]");
    EXPECT_NE(refused({{"x", 1}, {"l", Json::array()}}).find("encoded"), std::string::npos);
}

TEST(JsonMessages, RefusalOfAValueSaysWhy) {
    std::tuple<char const *, Json, char const *> const refused[] = {
        {"txt", "a", "message.txt: the class chat.Say has no such field"},
        {"tags", {"a", nullptr}, "message.tags[1]: a list holds no null"},
        {"tags", "a", "message.tags: this has to be an array"},
        {"votes", {{"", 1}}, "message.votes.: the empty text can't be a key"},
        {"votes", {{"ann", "x"}}, "message.votes.ann: the field does not hold this number"},
        {"numbers", {{"x", "a"}}, "message.numbers.x: the keys of this map do not hold this number"},
        {"place", Json::array(), "message.place: this has to be an object"},
        {"mood", Json::object(), "message.mood: this has to be a plain value"},
        {"mood", "1", "message.mood: this may not be a string"},
        {"mood", true, "message.mood: this may not be a boolean"},
        {"age", 151, "message.age: the field does not hold this number"},
        {"kind", 7, "message.kind: the enum has no such value"},
        {"text", 1, "message.text: this has to be a string"},
        {"text", nullptr, "message.text: this is necessary"},
        {"sure", 1, "message.sure: this has to be true or false"},
        {"file", "AAE", "message.file: this has to be base64"},
    };
    for (auto const & [name, value, text] : refused) {
        EXPECT_EQ(encode(with(name, value)).value("text", ""), text);
    }
}

TEST(JsonMessages, RefusalOfAKindSaysWhy) {
    auto const of = [](std::string const & field, Json const & message) {
        return Json{{"@type", "encode"},
                    {"template", "A:object(__class__(A) __code__(3001) [1]" + field + "())"},
                    {"class", "A"},
                    {"message", message}};
    };
    expectRefused({
        {of("c:char", {{"c", "a"}}), "message.c: a field of one character can't be sent"},
        {of("m:map{int32,string}", {{"m", {{"1", "a"}}}}),
         "message.m.1: a map with keys of this kind can't be sent"},
        {of("m:map{bytes,string}", {{"m", {{"x", "a"}}}}), "message.m.x: this key has to be base64"},
        {of("l:list{list{int32}}", {{"l", Json::array({Json::array({1})})}}),
         "message.l[0]: a list or map within a list or map can't be sent"},
    });
}

TEST(JsonMessages, RefusalOfAClassSaysWhy) {
    Json const place = {
        {"@type", "encode"}, {"template", chat}, {"class", "chat.Place"}, {"message", Json::object()}};
    Json absent = place;
    absent["class"] = "chat.No";
    expectRefused({
        {place, "class: the template has no code for the class chat.Place"},
        {absent, "class: the template has no class chat.No"},
        {{{"@type", "encode"}, {"class", "A"}, {"message", Json::object()}},
         "message: there is no template to encode it by"},
        {{{"@type", "encode"}, {"template", chat}, {"template_file", "a"}},
         "template_file: give the template as a text or as a file, not both"},
        {{{"@type", "decode"}, {"template", chat}, {"code", 9}, {"body", ""}},
         "code: there is no class of the code 9"},
        {{{"@type", "decode"}, {"template", chat}, {"code", 0x3001}, {"body", ""}},
         "the message is empty, and lacks text"},
        {sendOf(0x3002, "class", "chat.Say"), "code: the template has another code for the class chat.Say"},
        {checked({{"@type", "send"}, {"code", 0x3002}, {"class", "chat.Say"}, {"message", whole()}}),
         "code: the template has no class chat.Say of the code 12290"},
        {sendOf(0x3001, "reply", "No", "request"),
         "request.reply: the template has no code for the class No"},
        {{{"@type", "check"}, {"request", {{"@type", "request"}, {"reply", "No"}, {"body", ""}}}},
         "request.reply: there is no template"},
    });
}

TEST(JsonMessages, RefusalOfAMemberSaysWhy) {
    expectRefused({
        {connectWith("nick", "a"), "request.nick: no such member is known here"},
        {connectWith("host", 1), "request.host: this has to be a string"},
        {connectWith("host", std::string("a\0b", 3)), "request.host: this may not hold a zero character"},
        {connectWith("port", 70000),
         "request.port: this has to be a number from 0 to 65535 or the name of a service"},
        {connectWith("heartbeat", 1), "request.heartbeat: this has to be true or false"},
        {connectWith("policy", Json::array()), "request.policy: this has to be an object"},
        {connectWith("policy", {{"alpn", "a"}}), "request.policy.alpn: this has to be an array of strings"},
        {connectWith("policy", {{"tcp_keep_alive_probes", 3}}),
         "request.policy.tcp_keep_alive_probes: this needs tcp_keep_alive_s"},
        {connectWith("proxy", {{"type", "ftp"}, {"host", "a"}, {"port", 1}}),
         "request.proxy.type: this has to be one of \"http\", \"socks5\""},
        {connectWith("proxy", {{"host", "a"}, {"port", 1}, {"user", std::string(256, 'a')}}),
         "request.proxy: user and password have 255 bytes at most"},
        {connectWith("keeper", {{"gateways", 1}}),
         "request.keeper.gateways: this has to be an array of objects"},
        {connectWith("keeper", {{"login", {{"code", 5}, {"body", ""}, {"reply", 6}}}}),
         "request.keeper.login.code: a message of a code up to 255 has no reply"},
        {sendOf(0x3001, "version", 0), "request.version: this has to be an integer from 1 to 65535"},
        {sendOf(0x3001, "as", "octal"), "request.as: this has to be one of \"base64\", \"hex\""},
        {sendOf(0x3001, "body", "x"), "request.body: this has to be base64"},
        {sendOf(0x3001, "target", "a"), "request.target: only a message of a code up to 255 has a target"},
        {sendOf(5, "receipt", true), "request.receipt: a message of a code up to 255 has no receipt"},
        {sendOf(5, "reply", 6, "request"), "request.code: a message of a code up to 255 has no reply"},
    });
    Json hex = sendOf(0x3001, "body", "xx");
    hex["request"]["as"] = "hex";
    expectRefused({{hex, "request.body: these are no hexadecimal digits"}});
}

TEST(JsonMessages, RefusalOfAnExpectedReplySaysWhy) {
    auto const expecting = [](Json const & reply, Json const & value) {
        return connectWith("keeper", {{"login",
                                       {{"class", "chat.Say"},
                                        {"message", whole()},
                                        {"reply", reply},
                                        {"expect", {{"text", value}}}}}});
    };
    expectRefused({
        {expecting("chat.Said", Json::array()),
         "request.keeper.login.expect.text: this has to be a string, a number, true or false"},
        {expecting(9, "a"), "request.keeper.login.expect: the template does not have the class of the reply"},
    });
}

TEST(JsonMessages, RefusalOfARequestSaysWhy) {
    expectRefused({
        {Json::array(), "a request is a JSON object"},
        {{{"@type", "dance"}}, "@type: there is no request dance that is answered at once"},
        {{{"@type", "check"}}, "request: this is necessary"},
        {checked({{"@type", "disconnect"}}), "request.@type: only connect, send and request are checked"},
        {{{"@type", "statistics"}}, "statistics needs a client"},
        {{{"@type", "log"}, {"levels", "a(b)"}},
         "levels: levels stand in one pair of brackets, such as (default(WARN))"},
        {{{"@type", "log"}, {"levels", "(default(LOUD))"}}, "levels: there is no level LOUD"},
        {{{"@type", "log"}, {"levels", "(default(WARN))"}, {"size", 2000}}, "size: only a file has a size"},
    });
}

TEST(JsonMessages, RefusalOfATextSaysWhyAndWhere) {
    auto const refused = [](std::string const & text) {
        return Json::parse(tav_json_execute(nullptr, text.c_str())).value("text", "");
    };
    EXPECT_EQ(refused("{\"a\":\"\xff\"}"), "this is not UTF-8, at byte 6 (line 1, column 7)");
    EXPECT_EQ(refused("{}\n x"), "nothing may stand behind the value, at byte 4 (line 2, column 2)");
    EXPECT_EQ(refused("{\"a\" 1}"), "expected ':', at byte 5 (line 1, column 6)");
    EXPECT_EQ(refused("{1:2}"), "expected the name of a member, at byte 1 (line 1, column 2)");
    EXPECT_EQ(refused("{\"a\":}"), "expected a value, at byte 5 (line 1, column 6)");
    EXPECT_EQ(refused("{\"a\":nope}"), "this is no value, at byte 5 (line 1, column 6)");
    EXPECT_EQ(refused("{\"a\":\"x"), "a string has no end, at byte 7 (line 1, column 8)");
    EXPECT_EQ(refused("{\"a\":\"\x01\"}"), "a control character in a string, at byte 6 (line 1, column 7)");
    EXPECT_EQ(refused(R"({"a":"\x"})"), "no escape of JSON, at byte 6 (line 1, column 7)");
    EXPECT_EQ(refused(R"({"a":"\u12g4"})"), "no escape of JSON, at byte 6 (line 1, column 7)");
    EXPECT_EQ(refused(R"({"a":"\ud800"})"), "half of a surrogate pair, at byte 6 (line 1, column 7)");
}

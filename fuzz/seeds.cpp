#include "fuzz/seeds.h"

#include "fuzz/model.h"
#include "tav/vinta/vinta_im_pkt.h"

#include <algorithm>

namespace tav_fuzz {

std::string_view const plainLetters = "abcxyzABC0129";
namespace {

constexpr char const wild[] = "ab1 \0\t\n\r\x01\x7f\"'\\/<>&;:()[]{}*^.,-+=~#?!%\xc3\xa4\xe2\x82\xac\xff";

} // namespace

std::string_view const wildLetters(wild, sizeof wild - 1);

std::size_t below(Random & random, std::size_t n) {
    return random() % n;
}

std::string randomText(Random & random, std::string_view alphabet, std::size_t most) {
    std::string out(below(random, most + 1), ' ');
    for (char & c : out) {
        c = alphabet[below(random, alphabet.size())];
    }
    return out;
}

std::string randomBytes(Random & random, std::size_t most) {
    std::string out(below(random, most + 1), ' ');
    for (char & c : out) {
        c = static_cast<char>(random());
    }
    return out;
}

std::string_view oneOf(Random & random, std::vector<std::string_view> const & all) {
    return all[below(random, all.size())];
}

std::string unhex(std::string_view text) {
    std::string out;
    int high = -1;
    for (char const c : text) {
        if (c == ' ') {
            continue;
        }
        int const digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high >= 0) {
            out += static_cast<char>(high * 16 + digit);
        }
        high = high >= 0 ? -1 : digit;
    }
    return out;
}

void fill(Everything & out, Random & random, std::string_view alphabet) {
    auto const number = [&] { return static_cast<int>(random()) >> below(random, 32); };
    auto const text = [&] { return tavString(randomText(random, alphabet, 9)); };
    auto const place = [&] {
        Place made;
        made.city = text();
        made.floor = static_cast<int>(below(random, 1000));
        return made;
    };
    auto const mood = [&] { return below(random, 2) == 0 ? Mood::bad : Mood::distant; };
    out.urgent = below(random, 2) == 0;
    out.tiny = static_cast<char>(number());
    out.byte = static_cast<unsigned char>(number());
    out.level = static_cast<short>(below(random, 500));
    out.port = static_cast<unsigned short>(number());
    out.plain = number();
    out.flags = static_cast<unsigned>(number());
    out.wide = number();
    out.large = static_cast<unsigned long>(std::max(0, number()));
    out.at = static_cast<long long>(number()) * number();
    out.size = below(random, 1000000);
    out.ratio = static_cast<float>(number()) / 8;
    out.weight = static_cast<double>(below(random, 1000)) / 16;
    out.text = text();
    out.secret = text();
    out.standard = randomText(random, alphabet, 20);
    out.digest = tavBytes(viewOf(randomBytes(random, 12)));
    out.mood = mood();
    out.retries = number();
    if (below(random, 2) == 0) {
        out.reply = text();
        out.home = new Place(place());
        out.when = tavTime::milliseconds(1600000000000ll + number());
    }
    out.place = place();
    for (std::size_t left = below(random, 4); left > 0; --left) {
        out.numbers.push_back(number());
        out.tags.push_back(text());
        out.marks.push_back(below(random, 2) == 0);
        out.weights.push_back(number() / 4.0);
        out.moods.push_back(mood());
        out.route.push_back(place());
        out.stops.push_back(new Place(place()));
        out.table.push_back({text(), text()});
        out.votes[tavString(randomText(random, plainLetters, 5) + "k")] = number();
        out.names[number()] = text();
        out.rooms[tavString(randomText(random, plainLetters, 5) + "k")] = place();
        out.loose[randomText(random, plainLetters, 5)] = number();
        out.series[randomText(random, plainLetters, 5) + "k"] = {number(), number()};
    }
}

std::string const & fixedTemplate() {
    static std::string const text =
        "Part:object(__class__(im.Part) [1]city:string() [2]floor:int32?(0{-100..1000}))\n"
        "Everything:object(__class__(im.Everything) __code__(2001)\n"
        "[1]urgent:bool?() [2]tiny:int8?() [3]byte:uint8?() [4]level:int16?(0{-500..500}) [5]port:uint16?()\n"
        "[6]plain:int32?() [7]flags:uint32?() [8]wide:int64?() [9]large:uint64?() [10]at:int64() "
        "[11]size:uint64?()\n"
        "[12]ratio:float?() [13]weight:double?() [14]when:time?() [15]mood:enum{Mood}(good(0) bad(1) "
        "distant(300))\n"
        "[20]text:string?() [21]secret:string?({..***..}) [22]standard:u8string?() [23]digest:bytes?()\n"
        "[30]place:im.Part?() [31]home:ref{im.Part}?() [32]numbers:list{int32}() [33]tags:list{string}()\n"
        "[37]route:list{im.Part}() [40]votes:map{string,int32}() [41]names:map{int64,string}()\n"
        "[42]rooms:map{string,im.Part}() [44]moods:list{Mood}(m:enum{Mood}(good(0) bad(1)))\n"
        "[45]inner:object(__class__(im.Inner) [1]deep:map{string}(d:object(__class__(im.Deep) "
        "[1]x:int32?()))))\n"
        "Bare:object(__class__(im.Bare) __code__(0x1002) [1]note:string?())\n";
    return text;
}

namespace {

Everything randomMessage(Random & random) {
    nameMoods();
    Everything made;
    fill(made, random, below(random, 3) == 0 ? wildLetters : plainLetters);
    return made;
}

} // namespace

std::string randomNbrMessage(Random & random) {
    return std::string(textOf(randomMessage(random).encode(below(random, 2) == 0)));
}

std::string randomJsonMessage(Random & random) {
    Everything made = randomMessage(random);
    made.when = tavTime();
    return std::string(textOf(made.encodeJson(below(random, 2) == 0)));
}

std::string randomPmlMessage(Random & random) {
    tavPmlOutStream out;
    randomMessage(random).io(out);
    return std::string(textOf(out.str(below(random, 2) == 0, below(random, 2) == 0)));
}

std::string randomXmlMessage(Random & random) {
    tavXmlOutStream out("message");
    randomMessage(random).io(out);
    return std::string(textOf(out.str(below(random, 2) == 0)));
}

std::string randomNbr(Random & random, int depth) {
    static std::vector<std::string_view> const simple = {"00",           "0100",       "F100",
                                                         "010105",       "010180",     "01022C01",
                                                         "0104FFFFFFFF", "F1026869",   "0108000000000000F83F",
                                                         "02020000",     "F303000068", "04FFFFFFFF01",
                                                         "0105"};
    if (depth == 0 || below(random, 4) == 0) {
        return unhex(oneOf(random, simple));
    }
    std::string out = unhex("FF0128");
    for (std::size_t left = below(random, 5); left > 0; --left) {
        out += static_cast<char>(below(random, 4) == 0 ? random() : below(random, 4));
        out += randomNbr(random, depth - 1);
    }
    return out + unhex("FF0129");
}

std::string randomJson(Random & random, int depth) {
    static std::vector<std::string_view> const simple = {"null",
                                                         "true",
                                                         "false",
                                                         "0",
                                                         "-1",
                                                         "0x10",
                                                         "1e5",
                                                         "1.25",
                                                         "\"\"",
                                                         "word",
                                                         "\"a\\\"b\\\\\\u0041\"",
                                                         "'x'",
                                                         "12345678901234567890",
                                                         "\"\\n\\t\\/\""};
    if (depth == 0 || below(random, 4) == 0) {
        return below(random, 3) == 0 ? '"' + randomText(random, plainLetters, 12) + '"'
                                     : std::string(oneOf(random, simple));
    }
    bool const list = below(random, 2) == 0;
    std::string out = list ? "[" : "{";
    for (std::size_t left = below(random, 5); left > 0; --left) {
        out += list ? "" : '"' + randomText(random, plainLetters, 4) + "k\":";
        out += randomJson(random, depth - 1) + (left > 1 ? ", " : "");
    }
    return out + (list ? "]" : "}");
}

std::string randomPml(Random & random, int depth) {
    static std::vector<std::string_view> const types = {"", ":string", ":int32", ":list{string}", ":"};
    std::string const name = randomText(random, plainLetters, 5);
    if (depth == 0 || below(random, 4) == 0) {
        std::string const value = randomText(random, plainLetters, 8);
        return name + std::string(oneOf(random, types)) + "(" +
               (below(random, 3) == 0 ? "\"^\"(" + value + "^^:\"" : value) + ")";
    }
    std::string out =
        name + std::string(oneOf(random, types)) + (below(random, 6) == 0 ? "*(comment*)" : "(");
    for (std::size_t left = below(random, 5); left > 0; --left) {
        out += randomPml(random, depth - 1) + (below(random, 2) == 0 ? "\n" : " ");
    }
    return out + ")";
}

std::string randomXml(Random & random, int depth) {
    static std::vector<std::string_view> const simple = {"text",
                                                         "&lt;a&gt;&amp;&#65;&#x41;&quot;",
                                                         "<![CDATA[a<b]]>",
                                                         "<!-- c -->",
                                                         "",
                                                         "  blank  ",
                                                         "<empty/>",
                                                         "<any></any>"};
    std::string const name = "t" + randomText(random, plainLetters, 4);
    std::string out = "<" + name;
    if (below(random, 2) == 0) {
        out += " a=\"" + randomText(random, plainLetters, 5) + "\" b='&lt;'";
    }
    out += ">";
    for (std::size_t left = below(random, 4); left > 0; --left) {
        out += depth == 0 ? std::string(oneOf(random, simple)) : randomXml(random, depth - 1);
    }
    return out + "</" + name + ">";
}

std::string randomTemplate(Random & random) {
    static std::vector<std::string_view> const types = {
        "bool",          "int8",         "int16?",  "int32",         "int64",        "uint8",        "uint16",
        "uint32",        "uint64?",      "float",   "double",        "string",       "wstring",      "bytes",
        "time",          "list{string}", "list{A}", "map{string,A}", "map{int64,B}", "ref{B}",       "A",
        "optional{int}", "Integer",      "ulong",   "enum{E}",       "object",       "list{ref{A}}", "union"};
    static std::vector<std::string_view> const values = {
        "",     "18{0..150}",     "{***}",  "{..***.}",  "true",
        "null", "good(0) bad(1)", "5{*c*}", "1{1,3..5}", "__class__(C) [1]x:int()"};
    std::string out;
    for (std::size_t classes = 1 + below(random, 3); classes > 0; --classes) {
        std::string const name(1, static_cast<char>('A' + below(random, 4)));
        out += name + ":object(__class__(" + name + ") ";
        out += below(random, 2) == 0 ? "__code__(" + randomText(random, "0123ABCDEFx", 4) + ") " : "";
        out += below(random, 4) == 0
                   ? "__super__(" + std::string(1, static_cast<char>('A' + below(random, 4))) + ") "
                   : "";
        for (std::size_t fields = below(random, 5); fields > 0; --fields) {
            out += "[" + std::to_string(below(random, 12)) + "]f" + std::to_string(below(random, 9)) + ":";
            out += std::string(oneOf(random, types)) + "(" + std::string(oneOf(random, values)) + ") ";
        }
        out += ")\n";
    }
    return out;
}

std::string mobilePacket(unsigned char affirm, unsigned short code, unsigned short sequence,
                         std::string const & body, bool withExt) {
    auto const packet = tav::im::Packet::create(true, withExt ? 6 : 4);
    packet->setAffirm(affirm);
    packet->setCode(code);
    packet->setSequence(sequence);
    packet->setSession(sequence * 1000003ull);
    packet->setBody(viewOf(body));
    if (withExt) {
        tavMsgExt ext;
        ext.serverTime = 1600000000000ll;
        ext.traceId = tavString("trace");
        packet->setExt(ext);
    }
    tavBytes out;
    packet->encode(out);
    return std::string(textOf(out));
}

std::string oldPacket(unsigned char kind, unsigned char code, unsigned sequence, std::string const & body) {
    auto const packet = tav::im::Packet::create(false, 0);
    packet->setAffirm(kind);
    packet->setCode(code);
    packet->setSequence(sequence);
    packet->setSession(77);
    packet->setTarget("somebody");
    packet->setBody(viewOf(body));
    tavBytes out;
    packet->encode(out);
    return std::string(textOf(out));
}

std::string randomPacket(Random & random) {
    static unsigned short const codes[] = {0x2001, 0x1002, 0x3000, 0x1234};
    std::string const body = below(random, 2) == 0 ? randomNbrMessage(random) : randomNbr(random, 2);
    if (below(random, 3) == 0) {
        return oldPacket(static_cast<unsigned char>(below(random, 64)),
                         static_cast<unsigned char>(below(random, 6)),
                         static_cast<unsigned>(below(random, 1000)), body);
    }
    return mobilePacket(below(random, 2) == 0 ? 0x20 : static_cast<unsigned char>(below(random, 64)),
                        codes[below(random, 4)], static_cast<unsigned short>(below(random, 9)), body,
                        below(random, 2) == 0);
}

std::string damaged(Random & random, std::string text) {
    for (std::size_t left = 1 + below(random, 3); left > 0 && !text.empty(); --left) {
        std::size_t const at = below(random, text.size());
        switch (below(random, 4)) {
        case 0: text.resize(at); break;
        case 1: text[at] = static_cast<char>(random()); break;
        case 2: text.erase(at, 1 + below(random, 4)); break;
        default: text.insert(at, text.substr(at, 1 + below(random, 16)));
        }
    }
    return text;
}

} // namespace tav_fuzz

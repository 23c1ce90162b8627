#ifndef TAV_TESTS_SUPPORT_TEMPLATES_H
#define TAV_TESTS_SUPPORT_TEMPLATES_H

#include "support/nbr_bytes.h"

#include <string>

/// Meta templates, and messages of their classes in each form.
namespace tav_test {

/// im.Hello has the code 0x1F01, im.Reply 0x1F02 with a protected field, im.Push 0x1001, im.Bare none.
inline std::string const & helloTemplate() {
    static std::string const text = "Hello:object(\n"
                                    "    __class__(im.Hello)\n"
                                    "    __code__(1F01)\n"
                                    "    [1]user:string()\n"
                                    "    [2]seq:int64()\n"
                                    "    [3]tags:list{string}()\n"
                                    "    [4]mood:enum{Mood}(\n"
                                    "        __default__(good)\n"
                                    "        good(0)\n"
                                    "        bad(1)\n"
                                    "    )\n"
                                    ")\n"
                                    "Reply:object(\n"
                                    "    __class__(im.Reply)\n"
                                    "    __code__(0x1f02)\n"
                                    "    [1]text:string()\n"
                                    "    [2]token:string({***})\n"
                                    ")\n"
                                    "Push:object(__class__(im.Push) __code__(1001) [1]note:string?())\n"
                                    "Bare:object(__class__(im.Bare) [1]note:string?())\n";
    return text;
}

/// A message im.Hello: what an application writes, what it reads, what the log shows, and its body.
inline std::string helloJson() {
    return R"({"__class__":"im.Hello","user":"ann","seq":"5","tags":["a"],"mood":1})";
}
inline std::string helloRead() {
    return R"({ "__class__":"im.Hello", "mood":1, "seq":"5", "tags":[ "a" ], "user":"ann" })";
}
inline std::string helloLogged() {
    return R"(@im.Hello{ [1]user:"ann", [2]seq:"5", [3]tags:[ "a" ], [4]mood:1 })";
}
inline std::string helloBody() {
    return bytes(
        "FF 01 28 04 01 01 01 02 01 01 05 03 FF 01 28 00 F1 01 61 FF 01 29 01 F1 03 61 6E 6E FF 01 29");
}

/// The same of im.Reply, whose token is "tell nobody".
inline std::string replyRead() {
    return R"({ "__class__":"im.Reply", "text":"hi", "token":"tell nobody" })";
}
inline std::string replyLogged() {
    return R"(@im.Reply{ [1]text:"hi", [2]token:"***[11]" })";
}
inline std::string replyBody() {
    return bytes("FF 01 28 01 F1 02 68 69 02 F1 0B 74 65 6C 6C 20 6E 6F 62 6F 64 79 FF 01 29");
}
/// An im.Reply without its token.
inline std::string replyCut() {
    return bytes("FF 01 28 01 F1 02 68 69 FF 01 29");
}

} // namespace tav_test

#endif

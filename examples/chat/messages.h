#ifndef TAV_EXAMPLES_CHAT_MESSAGES_H
#define TAV_EXAMPLES_CHAT_MESSAGES_H

#include <tav/kit/kit.h>

#include <vector>

/// What the chat's clients and the keeper of its rooms tell each other.  The gateway hands each message to
/// everybody else, and answers the sender with the code + 1; who is meant stands in the message.
namespace chat {

/// A line of the conversation.  `id` is like no other, so that a line that comes twice is known.
struct Line : tav::kit::object<Line> {
    static constexpr char const * type_name = "chat.Line";
    unsigned long long id = 0;
    long long at = 0; ///< Milliseconds since 1970, UTC.
    tavString room;
    tavString name;
    tavString text;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "id", id);
        ioField(s, 2, "at", at);
        ioField(s, 3, "room", room);
        ioField(s, 4, "name", name);
        ioField(s, 5, "text", text);
    }
};

struct Say : tav::kit::message<Say> {
    static constexpr char const * type_name = "chat.Say";
    static constexpr unsigned short type_code = 0x3101;
    Line line;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "line", line); }
};
struct Said : tav::kit::message<Said, Say> {
    static constexpr char const * type_name = "chat.Said";
    static constexpr unsigned short type_code = 0x3102;
};

/// Somebody comes into a room, or comes back after a break: then `last` is the last line that was seen there.
/// The keeper of the rooms comes into all of them, by an empty name.
struct Enter : tav::kit::message<Enter> {
    static constexpr char const * type_name = "chat.Enter";
    static constexpr unsigned short type_code = 0x3103;
    unsigned long long who = 0; ///< Of a client, like no other; names may change.
    tavString room;
    tavString name;
    tavString was; ///< The name so far, if that is what has changed.
    unsigned long long last = 0;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "who", who);
        ioField(s, 2, "room", room);
        ioField(s, 3, "name", name);
        ioField(s, 4, "was", was);
        ioField(s, 5, "last", last);
    }
};
struct Entered : tav::kit::message<Entered, Enter> {
    static constexpr char const * type_name = "chat.Entered";
    static constexpr unsigned short type_code = 0x3104;
};
struct Leave : tav::kit::message<Leave, Enter> {
    static constexpr char const * type_name = "chat.Leave";
    static constexpr unsigned short type_code = 0x3105;
};

struct Left : tav::kit::message<Left, Enter> {
    static constexpr char const * type_name = "chat.Left";
    static constexpr unsigned short type_code = 0x3106;
};

/// Tells one who has come what was said: the keeper of the rooms all of it, a client what it has said itself
/// in the last minute, since that may have been said while the other one's connection was broken.
struct Past : tav::kit::message<Past> {
    static constexpr char const * type_name = "chat.Past";
    static constexpr unsigned short type_code = 0x3107;
    unsigned long long to = 0;
    tavString room;
    std::vector<Line> lines;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "to", to);
        ioField(s, 2, "room", room);
        ioField(s, 3, "lines", lines);
    }
};

/// Asks who is in a room; each who is there answers with Here.
struct Who : tav::kit::message<Who, Enter> {
    static constexpr char const * type_name = "chat.Who";
    static constexpr unsigned short type_code = 0x3109;
};
struct Here : tav::kit::message<Here> {
    static constexpr char const * type_name = "chat.Here";
    static constexpr unsigned short type_code = 0x310b;
    unsigned long long to = 0;
    tavString room;
    tavString name;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "to", to);
        ioField(s, 2, "room", room);
        ioField(s, 3, "name", name);
    }
};

} // namespace chat

#endif

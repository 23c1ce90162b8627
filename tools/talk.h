#ifndef TAV_TOOLS_TALK_H
#define TAV_TOOLS_TALK_H

#include "tools/live.h"

namespace tav {
namespace tool {

/// What sends messages, of one kind or another.
struct TalkOptions {
    LiveOptions live;
    ConvertOptions source;
    /// Whether each message waits for its reply, and for which; without one for that of the next code.
    bool awaits = false;
    bool confirms = false;
    std::string replyClass;
    std::string replyCode;
    unsigned atOnce = 1;
    unsigned lingerMs = 0;
};

/// The JSON of a message, or a file of messages.
void addMessageOptions(CLI::App & app, ConvertOptions & source, std::string const & fileText);

/// The template, the JSON and the connection.
void addTalkOptions(CLI::App & app, TalkOptions & options);

/// Sends what there is to send, prints what comes, and answers the exit code.
int talk(TalkOptions const & options, Output & output);

/// What the shell makes of a signal.
constexpr int codeOfSignal(int signal) {
    return 128 + signal;
}

} // namespace tool
} // namespace tav

#endif

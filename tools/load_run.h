#ifndef TAV_TOOLS_LOAD_RUN_H
#define TAV_TOOLS_LOAD_RUN_H

#include "tools/histogram.h"

#include <tav/vinta/vinta_basetypes_bytes.h>
#include <tav/vinta/vinta_tls_client_options.h>

#include <map>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// A message to be sent again and again.
struct LoadMessage {
    unsigned short code = 0xffff;
    tavBytes body;
};

/// What a load does.
struct LoadPlan {
    tls::connect_option connect;
    std::vector<LoadMessage> messages;
    unsigned clients = 1;
    /// Messages a second, of all clients together.
    double rate = 100;
    double seconds = 10;
    /// So long the rate grows, from nothing.
    double ramp = 0;
    /// Whether messages are not replied to but passed on to other clients.
    bool push = false;
    /// The code of the replies; 0xffff: the one behind that of the message.
    unsigned short reply = 0xffff;
    unsigned limitMs = 10000;
};

/// When the message of a number is due, in seconds from the beginning.
double dueTime(LoadPlan const & plan, unsigned long long number);

/// What came of it.
struct LoadResult {
    typedef std::map<std::string, unsigned long long> Counts;

    unsigned connected = 0;
    double connectSeconds = 0;
    /// Of connects that failed, and of connections that ended, by name.
    Counts connects;
    Counts breaks;
    /// How long it was sent, and how much.
    double seconds = 0;
    unsigned long long begun = 0;
    unsigned long long bytes = 0;
    /// The ends of sends by name, "ok" for good ones.
    Counts sends;
    /// How many pushes came, of how many.
    unsigned long long delivered = 0;
    unsigned long long expected = 0;
    /// In microseconds, from the time when a send was due, and when it was made.  What was never begun is in
    /// the first with the time that it was late at the end.
    Histogram latency;
    Histogram service;
    double cpuSeconds = 0;
    double wallSeconds = 0;
    double memoryMegabytes = 0;
    int signal = 0;
};

/// Loads a gateway, and shows on a terminal how far it is.  Takes as long as the plan says, and at most the
/// limit ahead of it and behind it.  A signal ends it early.
void runLoad(LoadPlan const & plan, LoadResult & result);

} // namespace tool
} // namespace tav

#endif

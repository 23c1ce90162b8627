#ifndef TAV_GATEWAY_COMMAND_LINE_H
#define TAV_GATEWAY_COMMAND_LINE_H

#include "gateway/gateway_core.h"

#include <CLI/CLI.hpp>

#include <string>

/// What a program that runs a gateway takes from its command line.
namespace tav {
namespace gateway {

struct Settings {
    Options options;
    std::string folder = "gateway-certificates";
    std::string chain;
    std::string key;
    std::string portFile;
    std::string route;
    std::string record;
    bool quiet = false;
    bool untilEof = false;
};

/// What a gateway does with packets, for the help of a program.
extern char const * const usualRule;

/// Adds the options of `settings`.
void addOptions(CLI::App & app, Settings & settings);

/// Takes the codes that are passed on from the command line's text.  Throws std::runtime_error.
void parseRoute(Settings & settings);

/// The certificates of the command line, made in their folder if there are none.  What is odd about them is
/// added to `note`.  Throws std::runtime_error.
Certificates certificatesOf(Settings const & settings, std::string & note);

/// Tells the port to who waits for the file, if one was asked for: it is there once it is whole.  Throws
/// std::runtime_error.
void writePort(Settings const & settings, unsigned short port);

/// "listening on ..." and what has happened so far.
std::string listeningLine(Settings const & settings, unsigned short port);
std::string stoppedLine(Stats const & stats);

} // namespace gateway
} // namespace tav

#endif

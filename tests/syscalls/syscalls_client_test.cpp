#include "syscalls/syscalls.h"
#include "torture/scenarios.h"

#include <gtest/gtest.h>

#include <netdb.h>

#include <cerrno>
#include <string_view>
#include <vector>

namespace tav_test {
namespace syscalls {
namespace {

constexpr unsigned makes_descriptor =
    makes_socket | makes_set | makes_event | makes_pipe | makes_timer | opens;

std::vector<Fault> const & faults() {
    static std::vector<Fault> const all = {
        {"no descriptor for a socket", makes_socket, EMFILE},
        {"no memory for a socket", makes_socket, ENOMEM},
        {"a connect is reset", connects, ECONNRESET},
        {"a connect is interrupted", connects, EINTR},
        {"a connect has to be tried again", connects, EAGAIN},
        {"no memory for a connect", connects, ENOMEM},
        {"a look-up has to be tried again", looks_up, EAI_AGAIN},
        {"no memory for a look-up", looks_up, EAI_MEMORY},
        {"no descriptor for a look-up", looks_up, EMFILE},
        {"a look-up is interrupted", looks_up, EINTR},
        {"a receive is interrupted", receives, EINTR},
        {"a receive has to be tried again", receives, EAGAIN},
        {"a byte is received", receives, 0},
        {"a byte is received", receives, 0, Lasting::stays},
        {"a receive is reset", receives, ECONNRESET},
        {"no memory for a receive", receives, ENOMEM},
        {"a send is interrupted", sends, EINTR},
        {"a send has to be tried again", sends, EAGAIN},
        {"a byte is sent", sends, 0},
        {"a byte is sent", sends, 0, Lasting::stays},
        {"a send is reset", sends, ECONNRESET},
        {"a send has no reader", sends, EPIPE},
        {"no memory for a send", sends, ENOMEM},
        {"a wait is interrupted", waits, EINTR},
        {"no memory for a watch", watches, ENOMEM},
        {"no room for a watch", watches, ENOSPC},
        {"no descriptor for a set", makes_set, EMFILE},
        {"no memory for a set", makes_set, ENOMEM},
        {"no descriptor for an event", makes_event, EMFILE},
        {"no descriptor for an event or a pipe", makes_event | makes_pipe, EMFILE, Lasting::stays},
        {"no memory for an event or a pipe", makes_event | makes_pipe, ENOMEM, Lasting::stays},
        {"no descriptor for a timer", makes_timer, EMFILE},
        {"no memory for a timer", makes_timer, ENOMEM},
        {"no descriptor for a file", opens, EMFILE},
        {"no memory for a file", opens, ENOMEM},
        {"an open is interrupted", opens, EINTR},
        {"a read is interrupted", reads, EINTR},
        {"a read fails", reads, EIO},
        {"a byte is read", reads, 0},
        {"a byte is read", reads, 0, Lasting::stays},
        {"no descriptors", makes_descriptor, EMFILE, Lasting::stays},
        {"no memory", makes_descriptor | connects | receives | sends | watches, ENOMEM, Lasting::stays},
        {"no thread", starts_thread, EAGAIN},
        {"no thread", starts_thread, EAGAIN, Lasting::stays}};
    return all;
}

class SyscallsClientCalls : public testing::TestWithParam<torture::Scenario> {};

TEST_P(SyscallsClientCalls, OfEachCall) {
    runWithEachFailing(GetParam(), faults(), stride());
}

TEST(SyscallsClient, EachFaultHasCallsToMeet) {
    torture::Scenarios some;
    for (torture::Scenario const & each : torture::clientScenarios()) {
        std::string_view const name = each.name;
        if (name == "made" || name == "started_by_name" || name == "started_with_policy") {
            some.push_back(each);
        }
    }
    expectCallsToMeet(some, faults());
}

INSTANTIATE_TEST_SUITE_P(Client, SyscallsClientCalls, testing::ValuesIn(torture::clientScenarios()),
                         torture::nameOf);

} // namespace
} // namespace syscalls
} // namespace tav_test

#include "support/failing_allocations.h"

#include "bindings/json_rig.h"

using namespace tav_test;

namespace {

/// The answers that are there.
int answers(tav_json_client * client) {
    int count = 0;
    while (char const * const text = tav_json_receive(client, 0)) {
        count += Json::parse(text).contains("@extra") ? 1 : 0;
    }
    return count;
}

} // namespace

TEST(JsonAnswerMemory, RequestThatWasTakenHasOneAnswerAndOneThatWasNotHasNone) {
    Json const requests[] = {
        {{"@type", "version"}},
        {{"@type", "fly"}},
        {{"@type", "send"}, {"code", 0x3001}, {"body", "AQID"}},
        {{"@type", "request"}, {"code", 0x3001}, {"body", "AQID"}, {"reply", 0x3002}},
        {{"@type", "connect"}, {"host", "a"}},
        {{"@type", "reconnect"}},
        {{"@type", "disconnect"}},
        {{"@type", "state"}},
        {{"@type", "encode"}, {"template", chat}, {"class", "chat.Say"}, {"message", {{"text", "a"}}}},
        {{"@type", "encode"}, {"template", chat}, {"class", "chat.Say"}, {"message", {{"mood", 300}}}},
    };
    Talker ann;
    allocationsOwn = true;
    onlyOwnAllocations = true;
    for (Json request : requests) {
        request["@extra"] = "a text that is too long to stand in a string itself";
        std::string const text = request.dump();
        bool failed = true;
        for (long n = 1; failed; ++n) {
            int taken = -1;
            {
                FailingAllocation const failing(n);
                taken = tav_json_send(ann.client, text.c_str());
                failed = FailingAllocation::happened();
            }
            ASSERT_EQ(answers(ann.client), taken == 0 ? 1 : 0) << n << text;
        }
    }
    onlyOwnAllocations = false;
    allocationsOwn = false;
}

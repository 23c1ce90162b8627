// Must not compile: tav::kit: a time limit has a unit, such as 5s
#include "tav/kit/message.h"
#include "tav/kit/talk.h"

void ask(tav::tls::client & client, tavMessage const & msg) {
    tav::kit::send(client, msg, 0.5);
}

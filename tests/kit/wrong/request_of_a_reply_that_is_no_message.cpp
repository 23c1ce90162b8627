// Must not compile: tav::kit::request<Reply>: Reply is the message class of the reply
#include "tav/kit/talk.h"

void ask(tav::tls::client & client, tavMessage const & msg) {
    tav::kit::request<tavString>(client, msg, std::chrono::seconds(5));
}

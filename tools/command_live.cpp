#include "tools/command.h"

namespace tav {
namespace tool {

namespace {

Command gatewayCommand() {
    return {"gateway", "Be a gateway for development, with rules and a record",
            "Serves clients over TLS 1.2 as tav-gateway does.  Rules from a file take packets by code,\n"
            "class or field, and answer, push, wait, drop or misbehave; a file that is wrong is told with\n"
            "line and column, and the gateway does not start.  What no rule is for: a code from 0x3000 to\n"
            "0x3fff (--route names others) goes, as it came, to every other client as well; 0x7005 closes\n"
            "the connection; all others are answered with the next code (--echo: their own) and the same\n"
            "sequence and body, those that went to others too, and the body of 0x7001 is pushed back as\n"
            "0x7003, which asks for a receipt.  Who asks for a receipt gets one first; a receipt is checked\n"
            "and not answered; a heartbeat comes back.  A record has all frames, both ways, and is appended\n"
            "to.  A page shows connections and traffic as it comes, and has buttons to push, reset and fall\n"
            "silent; its address is printed, with a token that it demands.  Certificates are made at first\n"
            "start.  It runs until Ctrl-C; the exit code is 1 if the template is wrong, 2 if the rules are\n"
            "or a file can't be used, and 3 if it can't listen.",
            "# by rules, each frame kept\n"
            "tav gateway --port 7443 -t chat.pml --rules rules.json --record traffic.bin\n"
            "# to be looked at in a browser\n"
            "tav gateway --port 7443 -t chat.pml --web 8080\n"
            "# what came and went, as JSON\n"
            "tav convert -t chat.pml --from frames --to json traffic.bin\n",
            addGateway};
}

} // namespace

std::vector<Command> liveCommands() {
    return {
        {"tls", "Look at a server's TLS: certificates, what is wrong with them, and what mends it",
         "Connects to a server and shows its certificates as it sends them, each with names, key, validity "
         "and\n"
         "fingerprint, every reason not to trust them with what mends it, whether the name is theirs, the\n"
         "protocol and the time of each phase.  Exit code 1: not to be trusted; 3: no TLS comes about.",
         "# with the authority that issued the certificate\n"
         "tav tls chat.example.com:7443 --ca ca.pem\n"
         "# when does it expire\n"
         "tav tls --json chat.example.com:7443 | jq '.chain[0].days_left'\n",
         addTls},
        {"send", "Send messages to a gateway",
         "Connects, sends JSON as messages of a template, and ends when all has gone out.  The JSON is given "
         "on\n"
         "the command line, in a file, or line by line on the standard input; what comes meanwhile is "
         "printed\n"
         "as JSON lines.  Failures are told by their names, and make the exit code 3; wrong JSON makes it "
         "1.\n"
         "A connection that ends is made again.  Ctrl-C closes it; the exit code is then 130 if something "
         "was\n"
         "left to be sent.",
         "# one message\n"
         "tav send chat.example.com:7443 -t chat.pml -c chat.Say '{\"text\":\"hello\"}'\n"
         "# those of a file, each confirmed by a receipt\n"
         "tav send chat.example.com:7443 -t chat.pml --ca ca.pem --confirm --file messages.json\n",
         addSend},
        {"request", "Send messages to a gateway and print the replies",
         "As send, but each message waits for its reply, which is printed as a line of JSON.  A reply that "
         "does\n"
         "not come in time is a failure, and makes the exit code 3.",
         "# a request and its reply\n"
         "tav request chat.example.com:7443 -t chat.pml -c chat.Say --reply chat.Said "
         "'{\"text\":\"hello\"}'\n"
         "# many, a hundred of them under way\n"
         "tav request chat.example.com:7443 -t chat.pml --replies --at-once 100 --file messages.json | jq "
         ".text\n",
         addRequest},
        {"listen", "Print what a gateway sends",
         "Connects and prints each message that comes as a line of JSON, until Ctrl-C, which closes the\n"
         "connection and is no failure.  A connection that ends is made again.",
         "# all that comes\n"
         "tav listen chat.example.com:7443 -t chat.pml --ca ca.pem\n"
         "# the keys of the connection, for who captures it\n"
         "tav listen chat.example.com:7443 -t chat.pml --keylog keys.log --count 1\n",
         addListen},
        {"load", "Load a gateway with many clients, and tell how long messages take",
         "Connects clients and sends messages at a fixed rate, whatever the gateway does (an open loop).\n"
         "Latencies are told by percentile and count from when a message was due, so that a gateway that\n"
         "stands still shows in all that were due meanwhile.  Sends that failed are told by name.  The exit\n"
         "code is 1 if a message or a connection failed, 3 if nobody could connect, and 130 if Ctrl-C\n"
         "ended it.",
         "# a thousand requests a second from two hundred clients\n"
         "tav load chat.example.com:7443 --ca ca.pem --size 100-2000 --clients 200 --rate 1000 --ramp 5\n"
         "# for a program, and as a picture\n"
         "tav load chat.example.com:7443 -t chat.pml --file say.json --json --plot load.svg | jq "
         ".latency_ms\n",
         addLoad},
        gatewayCommand(),
    };
}

} // namespace tool
} // namespace tav

#include "chat.h"
#include "text.h"

#include <exception>
#include <iostream>

// A chat for terminals: names, rooms, what was said before, and a connection that comes back.  Start a
// gateway, chat-rooms, which remembers what was said, and one of these for each user.

int main(int argc, char ** argv) {
    if (argc != 5) {
        std::cerr << "usage: chat HOST PORT CA-FILE NAME\n";
        return 2;
    }
    tav::tls::connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.set_tls_policy(tav::tls::tls_policy::safe());
    try {
        chat::Loop loop;
        auto screen = chat::editedScreen(loop);
        if (!screen) {
            screen = chat::plainScreen(loop);
        }
        chat::Chat(loop, *screen, option, chat::shown(argv[4])).run();
    } catch (std::exception const & e) {
        std::cerr << "chat: " << e.what() << "\n";
        return 1;
    }
    tav::tls::client::finalize();
    return 0;
}

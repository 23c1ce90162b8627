// What a connection says that is refused because it would not be safe: docs/safe.md.
#include <tav/vinta/vinta.h>

#include <functional>
#include <future>
#include <iostream>
#include <string>

using namespace tav::tls;

/// Connects with a policy that `spoil` has changed.  True if that fails with `why`, and with a text that
/// holds `reason`.
static bool refuses(char ** argv, std::function<void(tls_policy &)> const & spoil, failure why,
                    char const * reason) {
    tls_policy policy = tls_policy::safe();
    spoil(policy);
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(5000);
    option.set_tls_policy(policy);
    std::promise<std::string> told;
    option.set_on_error(
        [&](unsigned long long, unsigned short, int, char const * text) { told.set_value(text); });

    client gateway("refused");
    auto const start = gateway.start(option);
    if (!start || start->wait() != result_error) {
        std::cerr << "refused: not at all\n";
        return false;
    }
    // The text has a thread of its own, so that it may come a moment after the result.
    auto text = told.get_future();
    bool const came = text.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    std::string const line = came ? text.get() : "";
    std::cout << start->error().message() << ": " << line << "\n";
    bool const well = start->error() == why && line.find(reason) != std::string::npos;
    if (!well) {
        std::cerr << "refused: not by \"" << make_error_code(why).message() << "\"\n";
    }
    return well;
}

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: refused HOST PORT CA-FILE\n";
        return 2;
    }
    bool well = refuses(
        argv, [](tls_policy & p) { p.expected_name = "somebody-else.example"; }, failure::name_mismatch,
        "hostname mismatch");
    well &= refuses(
        argv, [](tls_policy & p) { p.certificate_file = "/nowhere/me.pem"; }, failure::bad_policy,
        "certificate_file /nowhere/me.pem");
    well &= refuses(
        argv, [](tls_policy & p) { p.ciphers = "NO-SUCH-CIPHER"; }, failure::bad_policy,
        "ciphers NO-SUCH-CIPHER");
    return well ? 0 : 1;
}

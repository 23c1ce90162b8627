#ifndef TAV_BINDINGS_C_KEEPING_H
#define TAV_BINDINGS_C_KEEPING_H

#include "bindings/c/fields.h"
#include "bindings/c/last_owner.h"
#include "bindings/c/message.h"

#include "tav/kit/keeper.h"

#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

/// A connection that is kept, as a connect wants it and as it is told of.
namespace tav {
namespace json_client {

/// What a reply to the login has to hold.
struct Expected {
    std::string name;
    Kind kind = Kind::null;
    bool truth = false;
    std::string text;
};

struct LoginWish {
    unsigned short code = no_code;
    unsigned short reply = no_code;
    tavBytes body;
    kit::within terms{std::chrono::seconds(10)};
    std::vector<Expected> expected;
    std::shared_ptr<Template const> messages;
};

struct KeeperWish {
    kit::keeper_option option;
    std::shared_ptr<LoginWish const> login; ///< Null if nothing is to be sent first.
};

/// Reads the object "keeper" of a connect.  Throws Failure.
std::shared_ptr<KeeperWish const> readKeeper(Document const & document, unsigned object,
                                             tls::connect_option const & option,
                                             std::shared_ptr<Template const> const & messages);

/// Takes a good reply to the login, ahead of all that comes after it.
using LoginTaker = std::function<void(unsigned long long, tav_istr, tavMsgExt const &)>;

kit::login_function loginOf(std::shared_ptr<LoginWish const> const & wish, LoginTaker const & good);

/// A keeper, and the client that it keeps.
struct Kept {
    Kept(std::shared_ptr<tls::client> of, tls::connect_option const & option, kit::keeper_option const & how,
         std::shared_ptr<std::atomic<bool> const> ended)
        : client(std::move(of)), left(std::move(ended)), keeper(*client, option, how) {}

    std::shared_ptr<tls::client> const client;
    /// True once the application has ended it.
    std::shared_ptr<std::atomic<bool> const> const left;
    kit::keeper keeper;
};

/// Stops it, and ends it, as LastOwner::end has it.
void letGo(LastOwner<Kept> & kept, LastOwner<Kept>::Clock::time_point until) noexcept;

/// The failure of a keeper, or of what was sent by it.  `left`: the application has ended it.
/// `cause` are words for it, if there are better ones than its name.
Failure keeperFailure(std::error_code why, bool left, std::string const & cause = std::string());

/// The event of a state.
std::string keeperText(kit::keeper_status const & status, std::string const & cause = std::string());
/// As a member of the answer of "state".
std::string keeperText(kit::keeper const & keeper, std::string const & cause);

} // namespace json_client
} // namespace tav

#endif

#ifndef TAV_TESTS_BINDINGS_JSON_RIG_H
#define TAV_TESTS_BINDINGS_JSON_RIG_H

#include "tav/kit/tav_im_json.h"

#include "gateway/gateway_core.h"
#include "support/folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// What tests of the C interface share.  They see the header alone, and read what comes with a parser of
/// somebody else.
namespace tav_test {

using Json = nlohmann::json;

/// Nothing takes longer.
constexpr double limit_s = 10;

inline char const * const chat = R"(
    Place:object(__class__(chat.Place) [1]city:string() [2]latitude:double?())
    Say:object(
        __class__(chat.Say) __code__(3001)
        [1]text:string()
        [2]mood:int8?()
        [3]tags:list{string}()
        [4]votes:map{string,int64}()
        [5]place:chat.Place?()
        [6]file:bytes?()
        [7]big:int64?()
        [8]sure:bool?()
        [9]kind:enum{Kind}?(plain(0) loud(1))
        [10]age:int32?(0{0..150})
        [11]ratio:double?()
        [12]numbers:map{int64,string}()
        [13]places:list{chat.Place}()
    )
    Said:object(__class__(chat.Said) __super__(chat.Say) __code__(3002))
    Pushed:object(__class__(chat.Pushed) __code__(7003) [1]text:string())
    PushMe:object(__class__(chat.PushMe) __code__(7001) [1]text:string())
    Pushing:object(__class__(chat.Pushing) __code__(7002) [1]text:string())
    CloseMe:object(__class__(chat.CloseMe) __code__(7005) [1]text:string())
)";

/// A gateway, and its authority as a file.
class Gate {
public:
    explicit Gate(tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(options, certificates()) {
        gateway.start();
    }
    Gate(Gate const &) = delete;
    Gate & operator=(Gate const &) = delete;

    static tav::gateway::Certificates const & certificates() {
        static tav::gateway::Certificates const made = tav::gateway::makeCertificates();
        return made;
    }

    Json connect() const {
        return {{"@type", "connect"}, {"host", "127.0.0.1"},    {"port", gateway.port()},
                {"ca", ca},           {"time_limit_ms", 10000}, {"template", chat}};
    }

    tav::gateway::Gateway gateway;
    Folder const folder;
    std::string const ca = folder.write("ca.pem", certificates().ca);
};

/// A client, and what it has received so far.
class Talker {
public:
    Talker() : client(tav_json_create(nullptr)) {}
    ~Talker() { tav_json_destroy(client); }
    Talker(Talker const &) = delete;
    Talker & operator=(Talker const &) = delete;

    void send(Json const & request) {
        ASSERT_EQ(tav_json_send(client, request.dump().c_str()), 0) << request;
    }

    /// The first that is as wanted, of what came by now and what comes; null after the limit.
    Json wait(std::function<bool(Json const &)> const & wanted) {
        for (auto at = heard.begin(); at != heard.end(); ++at) {
            if (wanted(*at)) {
                Json const found = *at;
                heard.erase(at);
                return found;
            }
        }
        auto const until = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit_s);
        for (;;) {
            std::chrono::duration<double> const left = until - std::chrono::steady_clock::now();
            char const * const text = tav_json_receive(client, left.count());
            if (text == nullptr) {
                return nullptr;
            }
            Json const one = Json::parse(text);
            if (wanted(one)) {
                return one;
            }
            heard.push_back(one);
        }
    }
    Json event(std::string const & type) {
        return wait([&](Json const & v) { return v["@type"] == type && !v.contains("@extra"); });
    }
    /// Sends it and gives its answer.
    Json ask(Json request) {
        int const extra = ++last_;
        request["@extra"] = extra;
        send(request);
        return wait([&](Json const & v) { return v.contains("@extra") && v["@extra"] == extra; });
    }
    static Json said(Json const & message, char const * type = "request") {
        Json out = {{"@type", type}, {"class", "chat.Say"}, {"message", message}};
        if (out["@type"] == "request") {
            out["reply"] = "chat.Said";
            out["time_limit_ms"] = 10000;
        }
        return out;
    }
    /// The message that the gateway gives back.
    Json echo(Json const & message) { return ask(said(message)); }

    tav_json_client * const client;
    std::vector<Json> heard;

private:
    int last_ = 0;
};

/// Holds up the threads that pass, for the limit at most.
class Hold {
public:
    void hold() { set(true); }
    void release() { set(false); }
    void pass() {
        std::unique_lock<std::mutex> guard(mutex_);
        here_ = true;
        changed_.notify_all();
        changed_.wait_for(guard, std::chrono::duration<double>(limit_s), [this] { return !held_; });
    }
    /// Whether somebody has come by before the limit.
    bool waitForSomebody() {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::duration<double>(limit_s), [this] { return here_; });
    }

private:
    void set(bool v) {
        std::lock_guard<std::mutex> const guard(mutex_);
        held_ = v;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    bool here_ = false;
};

/// The type of an answer, or the failure that it tells.
inline std::string nameOf(Json const & answer) {
    return answer["@type"] == "error" ? answer["name"].get<std::string>()
                                      : answer["@type"].get<std::string>();
}

inline Json execute(Json const & request, tav_json_client * client = nullptr) {
    return Json::parse(tav_json_execute(client, request.dump().c_str()));
}

} // namespace tav_test

#endif

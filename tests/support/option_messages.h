#ifndef TAV_TESTS_SUPPORT_OPTION_MESSAGES_H
#define TAV_TESTS_SUPPORT_OPTION_MESSAGES_H

#include "tav/vinta/vinta_tls_client_options.h"

#include "support/printed.h"

#include <chrono>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace tav_test {

/// A message with one field and the code 0x1234.
class Note : public tavMessage {
public:
    int number = 0;

    unsigned short msgcode() const override { return 0x1234; }
    tav_istr className() const override { return "Note"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Note; }
    void assignFrom(tavObject const & other) override {
        if (auto const * const from = dynamic_cast<Note const *>(&other)) {
            number = from->number;
        }
    }

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "number", number); }
};

inline tavSharedPtr<tavMessage> note() {
    return tavSharedPtr<tavMessage>(new Note);
}

inline unsigned char const * bytes(char const * text) {
    return reinterpret_cast<unsigned char const *>(text);
}

/// An ext with the trace "trace".
inline tavMsgExt traced() {
    tavMsgExt ext;
    ext.traceId = tavString("trace");
    return ext;
}

/// Makes functions of the four kinds and keeps what they are called with.  It must outlive them.
struct Seen {
    /// The kinds of all calls so far, each with a blank behind it.
    std::string kinds;
    /// The message of the last call with one.
    tavMessage const * message = nullptr;

    /// The last call as "kind sno 0xcode body trace"; nothing from then on.
    std::string take() { return std::exchange(last_, std::string()); }

    tav::tls::json_function json() {
        return [this](unsigned long long sno, unsigned short msgcode, char const * text, tavMsgExt ext) {
            called("json ", sno, msgcode);
            last_ += ' ' + std::string(text) + ' ' + std::string(tav_istr(ext.traceId.value()));
        };
    }
    tav::tls::nbr_function nbr() {
        return [this](unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                      unsigned int size, tavMsgExt ext) {
            called("nbr ", sno, msgcode);
            last_ += ' ' + std::string(reinterpret_cast<char const *>(data), size) + ' ' +
                     std::string(tav_istr(ext.traceId.value()));
        };
    }
    tav::tls::obj_function obj() {
        return [this](unsigned long long sno, tavMessage const & m) {
            called("obj ", sno, m.msgcode());
            message = &m;
        };
    }
    tav::tls::ptr_function ptr() {
        return [this](unsigned long long sno, tavSharedPtr<tavMessage> m) {
            called("ptr ", sno, m->msgcode());
            message = m.get();
        };
    }

private:
    void called(char const * kind, unsigned long long sno, unsigned short msgcode) {
        kinds += kind;
        std::ostringstream text;
        text << kind << sno << " 0x" << std::hex << msgcode;
        last_ = text.str();
    }

    std::string last_;
};

/// Runs `work` on a thread of its own; true if it came back within a bounded time.  When it did not the
/// thread is left behind and the test is about to fail.
template <class Work>
bool endsOnAnotherThread(Work work) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> const ended = done->get_future();
    std::thread([work, done] {
        work();
        done->set_value();
    }).detach();
    return ended.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
}

} // namespace tav_test

#endif

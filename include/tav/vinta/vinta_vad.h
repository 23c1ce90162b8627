#ifndef TAV_VINTA_VAD_H
#define TAV_VINTA_VAD_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The declared shape of a second transport.  No operation here does any work yet: a program links against
/// them, and no connection is made.
namespace tav {
namespace vad {

/// Carried in one byte; the values are the callers'.
enum channel_type : unsigned char { channel_none = 0 };

/// A host and a port.
struct TAV_API ip_port {
    ip_port();
    ip_port(tav_istr host, unsigned short port);
    ip_port(ip_port const & other);
    /// Leaves the source's host empty.
    ip_port(ip_port && other) noexcept;
    ip_port & operator=(ip_port const & other);
    ip_port & operator=(ip_port && other) noexcept;

    std::string host;
    unsigned short port;
};

/// What stands ahead of each frame.
struct TAV_API header {
    header(channel_type type = channel_none, unsigned char flags = 0);

    /// 0x00020140
    unsigned magic;
    unsigned char type;
    unsigned char flags;
    unsigned length;
};

/// Ten operations of which only the number is settled.
class TAV_API channel : public tavInterface {
public:
    ~channel() override;
    virtual void operation_1() = 0;
    virtual void operation_2() = 0;
    virtual void operation_3() = 0;
    virtual void operation_4() = 0;
    virtual void operation_5() = 0;
    virtual void operation_6() = 0;
    virtual void operation_7() = 0;
    virtual void operation_8() = 0;
    virtual void operation_9() = 0;
    virtual void operation_10() = 0;
};

/// Function objects that are passed in are destroyed and never called.
class TAV_API client {
public:
    client();
    ~client();
    client(client const &) = delete;
    client & operator=(client const &) = delete;

    static void init();
    static void fini();

    void open(tav_istr host, unsigned short port1, unsigned short port2,
              std::function<bool(void *)> callback);
    void reopen(tav_istr host);
    void close();

    /// Null.
    std::shared_ptr<channel> create_channel(tav_istr host, unsigned short port, channel_type type,
                                            unsigned char flags,
                                            std::function<void(std::shared_ptr<channel>, tav_ostr)> onData,
                                            std::function<void(std::shared_ptr<channel>)> onOpen = nullptr,
                                            std::function<void(std::shared_ptr<channel>)> onClose = nullptr);

    /// None.
    std::vector<std::shared_ptr<channel>>
    create_channels(tav_istr host, unsigned short port, channel_type type, unsigned char flags,
                    std::function<void(std::shared_ptr<channel>, tav_ostr)> onData = nullptr,
                    std::function<void(std::shared_ptr<channel>)> onOpen = nullptr,
                    std::function<void(std::shared_ptr<channel>)> onClose = nullptr);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace vad
} // namespace tav

#endif

#include "tav/vinta/vinta_vad.h"

#include <utility>

namespace tav {
namespace vad {

ip_port::ip_port() : port(0) {}

ip_port::ip_port(tav_istr host_, unsigned short port_) : host(host_), port(port_) {}

ip_port::ip_port(ip_port const & other) = default;

ip_port::ip_port(ip_port && other) noexcept : host(std::move(other.host)), port(other.port) {
    other.host.clear();
}

ip_port & ip_port::operator=(ip_port const & other) = default;

ip_port & ip_port::operator=(ip_port && other) noexcept {
    if (this != &other) {
        host = std::move(other.host);
        port = other.port;
        other.host.clear();
    }
    return *this;
}

header::header(channel_type type_, unsigned char flags_)
    : magic(0x00020140), type(type_), flags(flags_), length(0) {}

channel::~channel() = default;

class client::Impl {};

client::client() : impl_(new Impl) {}

client::~client() = default;

void client::init() {}

void client::fini() {}

void client::open(tav_istr, unsigned short, unsigned short, std::function<bool(void *)>) {}

void client::reopen(tav_istr) {}

void client::close() {}

std::shared_ptr<channel> client::create_channel(tav_istr, unsigned short, channel_type, unsigned char,
                                                std::function<void(std::shared_ptr<channel>, tav_ostr)>,
                                                std::function<void(std::shared_ptr<channel>)>,
                                                std::function<void(std::shared_ptr<channel>)>) {
    return nullptr;
}

std::vector<std::shared_ptr<channel>>
client::create_channels(tav_istr, unsigned short, channel_type, unsigned char,
                        std::function<void(std::shared_ptr<channel>, tav_ostr)>,
                        std::function<void(std::shared_ptr<channel>)>,
                        std::function<void(std::shared_ptr<channel>)>) {
    return {};
}

} // namespace vad
} // namespace tav

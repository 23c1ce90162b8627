#include "tools/convert_parts.h"
#include "tools/failure.h"
#include "tools/message_copy.h"

#include <tav/vinta/vinta_im_pkt.h>
#include <tav/vinta/vinta_json2nbr.h>
#include <tav/vinta/vinta_json_tree.h>
#include <tav/vinta/vinta_nbr_unit.h>
#include <tav/vinta/vinta_pml_streams.h>
#include <tav/vinta/vinta_xml_streams.h>

#include <unistd.h>

#include <cctype>
#include <stdexcept>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t largestFrame = 0xFFFFFF;

/// What has messages in it must have their classes.
void demandClass(Message const & message) {
    if (message.cls == nullptr) {
        throw std::invalid_argument("the template has no class of the code " + codeText(message.code));
    }
}

/// Whether there is nothing to be said of it without its envelope: a heartbeat or a receipt.
bool isBare(Message const & message) {
    return message.heartbeat || (message.enveloped && message.nbr.empty());
}

std::string base64Of(tavBytes const & bytes) {
    tavString text;
    bytes.toBase64(text);
    return stringOf(text);
}

class JsonSink : public Sink {
public:
    JsonSink(ConvertOptions const & options, Template const & model, Output & output)
        : options_(options), model_(model), output_(output) {}

    void put(Message const & message) override {
        if (options_.envelope) {
            output_.line(enveloped(message));
        } else if (!isBare(message)) {
            output_.line(body(message));
        }
    }

private:
    std::string body(Message const & message) const {
        demandClass(message);
        tavString text;
        json2nbr::read(text, message.nbr, message.cls->className, *model_.factory, false);
        if (!options_.pretty) {
            return stringOf(text);
        }
        json::JsonUnit unit;
        unit.decode(text);
        return stringOf(unit.value()->encode(true, false, 0, false));
    }

    std::string enveloped(Message const & message) const {
        if (message.heartbeat) {
            return "{\"packet\":\"heartbeat\"}";
        }
        Envelope const & e = message.envelope;
        std::string text = std::string("{\"packet\":\"") + (e.mobile ? "mobile" : "old") +
                           "\",\"version\":" + std::to_string(e.version) +
                           ",\"code\":" + std::to_string(message.code) + ",\"sequence\":\"" +
                           std::to_string(e.sequence) + "\",\"session\":\"" + std::to_string(e.session) +
                           "\",\"affirm\":" + std::to_string(e.affirm) +
                           ",\"grey\":" + (e.grey ? "true" : "false");
        if (message.nbr.empty()) {
            return text + "}";
        }
        return text + (message.cls == nullptr ? ",\"bytes\":\"" + base64Of(message.nbr) + "\"}"
                                              : ",\"body\":" + body(message) + "}");
    }

    ConvertOptions const & options_;
    Template const & model_;
    Output & output_;
};

/// What writes bytes, in the form that was asked for; as hexadecimal and base64 a line for each message.
class BytesSink : public Sink {
public:
    BytesSink(ConvertOptions const & options, Output & output) : as_(options.bytesAs), output_(output) {
        if (as_ == BytesAs::automatic) {
            as_ = ::isatty(STDOUT_FILENO) == 1 ? BytesAs::hex : BytesAs::raw;
        }
    }

protected:
    void write(tavBytes const & bytes) {
        std::string_view const view = viewOf(bytes);
        if (as_ == BytesAs::raw) {
            output_.write(view);
        } else {
            output_.line(as_ == BytesAs::hex ? hexText(view) : base64Of(bytes));
        }
    }

private:
    BytesAs as_;
    Output & output_;
};

class NbrSink : public BytesSink {
public:
    using BytesSink::BytesSink;
    void put(Message const & message) override {
        if (!isBare(message)) {
            write(message.nbr);
        }
    }
};

class FrameSink : public BytesSink {
public:
    using BytesSink::BytesSink;
    void put(Message const & message) override {
        tavBytes frame;
        if (message.heartbeat) {
            write(frame.writeBigEndian(0u));
            return;
        }
        if (message.code == Message::noCode) {
            throw std::invalid_argument("the class " + stringOf(message.cls->className) +
                                        " has no code for a packet");
        }
        Envelope e = message.envelope;
        constexpr unsigned short largestOld = 0xff;
        if (!message.enveloped) {
            e.mobile = message.code > largestOld;
            e.sequence = ++sequence_;
        }
        tavSharedPtr<im::Packet> const packet = im::Packet::create(e.mobile, e.version);
        packet->setAffirm(e.affirm);
        packet->setCode(message.code);
        packet->setSequence(e.sequence);
        packet->setSession(e.session);
        packet->setGrey(e.grey);
        packet->setBody(message.nbr);
        tavBytes bytes;
        packet->encode(bytes);
        if (bytes.size() > largestFrame) {
            throw std::invalid_argument("the packet has " + std::to_string(bytes.size()) +
                                        " bytes, and a frame holds 16777215");
        }
        frame.writeBigEndian(bytes.size());
        frame.writeBytes(bytes);
        write(frame);
    }

private:
    unsigned long long sequence_ = 0;
};

bool isPmlKey(std::string_view key) {
    return key.find_first_of(":()*^\"'\t\r\n") == std::string_view::npos && !key.empty() &&
           key.front() != ' ' && key.back() != ' ';
}

bool isXmlKey(std::string_view key) {
    auto const isFirst = [](char c) {
        return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':';
    };
    if (key.empty() || !isFirst(key.front())) {
        return false;
    }
    for (char const c : key) {
        if (!isFirst(c) && std::isdigit(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

class PmlSink : public Sink {
public:
    PmlSink(ConvertOptions const & options, Template const & model, Output & output)
        : pretty_(options.pretty), model_(model), output_(output) {}

    void put(Message const & message) override {
        if (isBare(message)) {
            return;
        }
        demandClass(message);
        tavNbrInStream in(message.nbr);
        pml::PmlOutputStream impl;
        tavPmlOutStream out(&impl, false);
        copyMessage(in, out, *message.cls, *model_.factory, isPmlKey);
        std::string const text = impl.encode(pretty_, false, 0, true, false);
        output_.line(pretty_ ? text.substr(1) : text);
    }

private:
    bool pretty_;
    Template const & model_;
    Output & output_;
};

class XmlSink : public Sink {
public:
    XmlSink(ConvertOptions const & options, Template const & model, Output & output)
        : pretty_(options.pretty), model_(model), output_(output) {}

    void put(Message const & message) override {
        if (isBare(message)) {
            return;
        }
        demandClass(message);
        tavNbrInStream in(message.nbr);
        tavXmlOutStream out("");
        copyMessage(in, out, *message.cls, *model_.factory, isXmlKey);
        std::string const text = stringOf(out.str(pretty_));
        output_.line(text.substr(std::min(text.find_first_not_of("\r\n"), text.size())));
    }

private:
    bool pretty_;
    Template const & model_;
    Output & output_;
};

} // namespace

std::unique_ptr<Sink> makeSink(ConvertOptions const & options, Template const & model, Output & output) {
    switch (options.to) {
    case Encoding::nbr: return std::make_unique<NbrSink>(options, output);
    case Encoding::pml: return std::make_unique<PmlSink>(options, model, output);
    case Encoding::xml: return std::make_unique<XmlSink>(options, model, output);
    case Encoding::frames: return std::make_unique<FrameSink>(options, output);
    default: return std::make_unique<JsonSink>(options, model, output);
    }
}

} // namespace tool
} // namespace tav

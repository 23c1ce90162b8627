#include "tools/convert_parts.h"
#include "tools/envelope.h"
#include "tools/failure.h"
#include "tools/json_judge.h"
#include "tools/message_copy.h"
#include "tools/message_tree.h"
#include "tools/pml_text.h"
#include "tools/xml_check.h"

#include <tav/vinta/vinta_json2nbr.h>
#include <tav/vinta/vinta_nbr_unit.h>
#include <tav/vinta/vinta_pml_streams.h>
#include <tav/vinta/vinta_xml_streams.h>

#include <unistd.h>

#include <cctype>
#include <stdexcept>

namespace tav {
namespace tool {

using pml::MetaField;

namespace {

constexpr std::size_t largestFrame = 0xFFFFFF;
constexpr std::size_t frameHead = 4;

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

/// The message by its class, whole and without what the class does not have.
MessageTree checked(Message & message, Template const & model) {
    demandClass(message);
    MessageTree tree = readMessage(viewOf(tav_istr(message.nbr)), *message.cls, *model.factory);
    if (!tree.missing.empty()) {
        throw PlacedFault(0, missingFields(tree.missing, *message.cls));
    }
    if (message.readAsNbr) {
        message.notes.insert(message.notes.end(), tree.notes.begin(), tree.notes.end());
    }
    return tree;
}

std::string base64Of(tavBytes const & bytes) {
    tavString text;
    bytes.toBase64(text);
    return stringOf(text);
}

class JsonSink : public Sink {
public:
    JsonSink(ConvertOptions const & options, Template const & model, Output & output)
        : options_(options), model_(model), writing_(writingFactory(*model.factory)), output_(output) {}

    void put(Message & message) override {
        if (options_.envelope) {
            output_.line(enveloped(message));
        } else if (!isBare(message)) {
            output_.line(body(message));
        }
    }

private:
    std::string body(Message & message) const { return jsonOf(checked(message, model_), options_.pretty); }

    std::string enveloped(Message & message) const {
        if (message.heartbeat) {
            return "{\"packet\":\"heartbeat\"}";
        }
        std::string const text = "{" + envelopeText(message);
        if (message.nbr.empty()) {
            return text + "}";
        }
        if (message.cls == nullptr) {
            return text + ",\"bytes\":\"" + base64Of(message.nbr) + "\"}";
        }
        std::string const body = this->body(message);
        return text + orderOf(message, body) + ",\"body\":" + body + "}";
    }

    /// What brings the body back as the same bytes, if members in the order of names are not these.
    std::string orderOf(Message & message, std::string const & body) const {
        if (!message.readAsNbr) {
            return {};
        }
        JsonText const json(body);
        std::string const text = judgeJson(json, json.root(), *message.cls, *model_.factory).text;
        tavBytes back;
        unsigned short code = Message::noCode;
        json2nbr::write(istrOf(text), back, code, writing_, message.cls->className);
        std::string_view const there = viewOf(tav_istr(message.nbr));
        if (viewOf(tav_istr(back)) == there) {
            return {};
        }
        if (inClassOrder(viewOf(tav_istr(back)), *message.cls, *model_.factory) == there) {
            return ",\"order\":\"class\"";
        }
        message.notes.push_back(
            Note{0, "the body comes back with the same values, but not as the same bytes"});
        return {};
    }

    ConvertOptions const & options_;
    Template const & model_;
    pml::MetaFactory writing_;
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
    void write(std::string_view bytes) {
        if (as_ == BytesAs::raw) {
            output_.write(bytes);
        } else {
            output_.line(as_ == BytesAs::hex ? hexText(bytes) : base64Of(tavBytes(istrOf(bytes))));
        }
    }

private:
    BytesAs as_;
    Output & output_;
};

class NbrSink : public BytesSink {
public:
    using BytesSink::BytesSink;
    void put(Message & message) override {
        if (!isBare(message)) {
            write(viewOf(tav_istr(message.nbr)));
        }
    }
};

class FrameSink : public BytesSink {
public:
    using BytesSink::BytesSink;
    void put(Message & message) override {
        if (!message.frame.empty() || message.heartbeat) {
            write(message.frame.empty() ? std::string(frameHead, '\0') : message.frame);
            return;
        }
        if (message.code == Message::noCode) {
            throw std::invalid_argument(message.cls == nullptr
                                            ? std::string("a packet needs a code")
                                            : "the class " + stringOf(message.cls->className) +
                                                  " has no code for a packet");
        }
        Envelope e = message.envelope;
        constexpr unsigned short largestOld = 0xff;
        if (!message.enveloped) {
            e.mobile = message.code > largestOld;
            e.sequence = ++sequence_ & (e.mobile ? 0xFFFFull : ~0ull);
        }
        std::string const packet = packetOf(e, message.code, viewOf(tav_istr(message.nbr)));
        if (packet.size() > largestFrame) {
            throw std::invalid_argument("the packet has " + std::to_string(packet.size()) +
                                        " bytes, and a frame holds 16777215");
        }
        std::string frame;
        for (std::size_t i = frameHead; i-- != 0;) {
            frame += static_cast<char>(packet.size() >> (8 * i) & 0xFFu);
        }
        write(frame + packet);
    }

private:
    unsigned long long sequence_ = 0;
};

bool isPmlKey(std::string_view key) {
    return key.find_first_of(":()*^\"'\t\r\n") == std::string_view::npos && !key.empty() &&
           key.front() != ' ' && key.back() != ' ';
}

bool anyKey(std::string_view) {
    return true;
}

bool isXmlKey(std::string_view key) {
    auto const isFirst = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; };
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

/// What writes a text for each message: the object as a compiled class writes it.
class TextSink : public Sink {
public:
    TextSink(ConvertOptions const & options, Template const & model, Output & output)
        : pretty_(options.pretty), model_(model), output_(output) {}

    void put(Message & message) override {
        if (isBare(message)) {
            return;
        }
        MessageTree const tree = checked(message, model_);
        for (MessageNode const & node : tree.nodes) {
            if (node.shape == MessageNode::Shape::null && message.readAsNbr) {
                message.notes.push_back(Note{node.offset, "field " + stringOf(node.field->idName.name) +
                                                              " is a null: it is dropped"});
            }
        }
        std::string const text = textOf(message);
        demandBack(message, tree, text);
        output_.line(text.substr(std::min(text.find_first_not_of("\r\n"), text.size())));
    }

protected:
    void copy(tavCodecStream & in, tavCodecStream & out, Message const & message, KeyRule const & key,
              Texts texts) const {
        copyMessage(in, out, *message.cls, *model_.factory, key, texts);
    }
    bool pretty() const { return pretty_; }

private:
    virtual std::string textOf(Message const & message) const = 0;
    /// Reads a text that this one wrote.
    virtual void readBack(std::string const & text, tavCodecStream & out, Message const & message) const = 0;
    virtual char const * nameOfText() const = 0;

    /// What the text would not bring back is refused, by the field.
    void demandBack(Message const & message, MessageTree const & tree, std::string const & text) const {
        MetaField const * field = nullptr;
        try {
            tavNbrOutStream out(false);
            readBack(text, out, message);
            std::string const back(viewOf(tav_istr(out.str())));
            std::string const wanted =
                inClassOrder(viewOf(tav_istr(message.nbr)), *message.cls, *model_.factory);
            if (back == wanted) {
                return;
            }
            field = differing(readMessage(wanted, *message.cls, *model_.factory).nodes,
                              readMessage(back, *message.cls, *model_.factory).nodes);
        } catch (std::exception const & e) {
            throw PlacedFault(0, std::string("the message has a value that ") + nameOfText() +
                                     " does not bring back: " + reasonOf(e));
        }
        std::size_t offset = 0;
        for (MessageNode const & node : tree.nodes) {
            offset = node.field == field && offset == 0 ? node.offset : offset;
        }
        throw PlacedFault(offset, (field == nullptr ? std::string("the message")
                                                    : "field " + stringOf(field->idName.name)) +
                                      " has a value that " + nameOfText() + " does not bring back");
    }

    /// The first field that is not the same in both; of what only one has that of the one.
    static MetaField const * differing(std::vector<MessageNode> const & a,
                                       std::vector<MessageNode> const & b) {
        std::size_t i = 0;
        while (i < a.size() && i < b.size() && a[i].field == b[i].field && a[i].shape == b[i].shape &&
               a[i].data == b[i].data && a[i].key == b[i].key) {
            ++i;
        }
        return i < a.size() ? a[i].field : i < b.size() ? b[i].field : nullptr;
    }

    bool pretty_;
    Template const & model_;
    Output & output_;
};

class PmlSink : public TextSink {
public:
    using TextSink::TextSink;

private:
    std::string textOf(Message const & message) const override {
        tavNbrInStream in(message.nbr);
        pml::PmlOutputStream impl;
        tavPmlOutStream out(&impl, false);
        copy(in, out, message, isPmlKey, Texts::out);
        return impl.encode(pretty(), false, 0, true, false);
    }
    void readBack(std::string const & text, tavCodecStream & out, Message const & message) const override {
        PmlText const units(text);
        tavPmlInStreamImpl impl(units.first());
        tavPmlInStream in(&impl, false);
        copy(in, out, message, anyKey, Texts::none);
    }
    char const * nameOfText() const override { return "PML"; }
};

class XmlSink : public TextSink {
public:
    using TextSink::TextSink;

private:
    std::string textOf(Message const & message) const override {
        tavNbrInStream in(message.nbr);
        tavXmlOutStream out("");
        copy(in, out, message, isXmlKey, Texts::out);
        std::string const text = stringOf(out.str(pretty()));
        std::string const name = stringOf(message.cls->className);
        return text.empty() ? "<" + name + "></" + name + ">" : text;
    }
    void readBack(std::string const & text, tavCodecStream & out, Message const & message) const override {
        checkXml(text);
        xml::Node root;
        root.decode(istrOf(text));
        tavXmlInStreamImpl impl(root);
        tavXmlInStream in(&impl, false);
        copy(in, out, message, anyKey, Texts::none);
    }
    char const * nameOfText() const override { return "XML"; }
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

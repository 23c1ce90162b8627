#include "tools/convert_parts.h"
#include "tools/failure.h"
#include "tools/json_stream.h"
#include "tools/message_copy.h"
#include "tools/nbr_reader.h"

#include <tav/vinta/vinta_im_pkt.h>
#include <tav/vinta/vinta_json2nbr.h>
#include <tav/vinta/vinta_json_tree.h>
#include <tav/vinta/vinta_nbr_unit.h>
#include <tav/vinta/vinta_pml_streams.h>
#include <tav/vinta/vinta_xml_streams.h>

#include <algorithm>
#include <stdexcept>

namespace tav {
namespace tool {

using pml::MetaClass;

namespace {

/// The most that one message, or a document that is read whole, may have.
constexpr std::size_t largestMessage = 256 * 1024 * 1024;
constexpr std::size_t largestFrame = 0xFFFFFF;
constexpr std::size_t frameHead = 4;

/// Is told nothing: for whoever only wants to know whether a document is whole.
class NoVisitor : public NbrVisitor {
public:
    void simple(NbrValue const &) override {}
    void open(NbrValue const &) override {}
    void close(std::size_t) override {}
};

std::string missingFields(std::vector<std::string> const & names, MetaClass const & cls) {
    std::string text = "missing necessary field name(s) {";
    for (std::string const & name : names) {
        text += " " + name;
    }
    return text + " } in class " + stringOf(cls.className);
}

void timesAsIntegers(MetaClass & outermost) {
    std::vector<MetaClass *> open = {&outermost};
    while (!open.empty()) {
        MetaClass & cls = *open.back();
        open.pop_back();
        for (pml::MetaField & field : cls.fields) {
            for (tavEnum<Kind> * const kind : {&field.classType.type, &field.classType.elementType}) {
                if (*kind == pml::field_type::time_) {
                    *kind = pml::field_type::int64_;
                }
            }
        }
        for (MetaClass & nested : cls.classes) {
            open.push_back(&nested);
        }
    }
}

pml::MetaFactory timesAsIntegers(pml::MetaFactory factory) {
    for (auto & entry : factory.classes) {
        timesAsIntegers(entry.second);
    }
    return factory;
}

class JsonSource : public Source {
public:
    JsonSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          writing_(timesAsIntegers(*model.factory)),
          cls_(chosenClass(model, options.className, options.code)),
          envelope_(options.envelope),
          file_(options.file),
          stream_(file_, largestMessage) {}

    bool next(Message & message) override {
        if (!stream_.next(text_)) {
            return false;
        }
        message = Message();
        body_ = text_;
        shift_ = 0;
        try {
            if (envelope_) {
                readEnvelope(message);
            } else {
                write(message);
            }
        } catch (std::invalid_argument const & e) {
            throw Failure(exitFound, told("error", reasonOf(e)));
        }
        return true;
    }
    std::string told(std::string const & kind, std::string const & what) const override {
        std::size_t const at = placeOfFailure(body_, what);
        // The text from there on has been told by the caret.
        static std::string const fronts[] = {"pair value no end", "array value no end", "no name",
                                             "no value end"};
        std::string text = what;
        for (std::string const & front : fronts) {
            text = text.compare(0, front.size(), front) == 0 ? front : text;
        }
        return stream_.told(shift_ + at, kind, text);
    }
    unsigned long long consumed() const override { return stream_.offset(); }
    unsigned long long size() const override { return file_.size(); }

private:
    void write(Message & message) {
        std::string const name = cls_ != nullptr ? stringOf(cls_->className) : std::string();
        unsigned short const code = message.code;
        constexpr int mostNegatives = 1000;
        for (int i = 0;; ++i) {
            try {
                json2nbr::write(istrOf(body_), message.nbr, message.code, writing_, istrOf(name));
                break;
            } catch (std::invalid_argument const & e) {
                if (i == mostNegatives || !unquoteNegative(reasonOf(e))) {
                    throw;
                }
                message.code = code;
            }
        }
        message.cls = model_.factory->findClass(message.code);
        if (message.cls == nullptr) {
            json::JsonUnit unit;
            unit.decode(istrOf(body_));
            tavString const own = unit["__class__"].asString();
            message.cls = model_.factory->findClass(own.empty() ? istrOf(name) : tav_istr(own));
        }
    }

    void readEnvelope(Message & message) {
        json::JsonUnit unit;
        unit.decode(istrOf(text_));
        json::JsonUnit const & all = unit;
        tavString const kind = all["packet"].asString();
        message.enveloped = true;
        message.heartbeat = kind == "heartbeat";
        message.envelope.mobile = kind != "old";
        all["version"] >> message.envelope.version;
        all["affirm"] >> message.envelope.affirm;
        all["sequence"] >> message.envelope.sequence;
        all["session"] >> message.envelope.session;
        all["grey"] >> message.envelope.grey;
        all["code"] >> message.code;
        all["bytes"] >> message.nbr;
        for (JsonMember const & member : membersOf(text_)) {
            if (member.name == "body") {
                shift_ = member.valueAt;
                body_ = text_.substr(shift_);
                write(message);
                break;
            }
        }
    }

    /// The transcoder writes negative numbers of 64 bits as strings, and takes them as numbers alone: the one
    /// that it refuses loses its quotes, and blanks take their place.  False if it refuses something else.
    bool unquoteNegative(std::string const & reason) {
        std::string_view const front = "not all digits for large integer -";
        std::size_t const at = reason.find(front);
        if (at == std::string::npos) {
            return false;
        }
        std::string const number = reason.substr(at + front.size() - 1);
        if (number.find_first_not_of("0123456789", 1) != std::string::npos) {
            return false;
        }
        std::size_t const quoted = body_.find("\"" + number + "\"", placeOfFailure(body_, reason));
        if (quoted == std::string_view::npos) {
            return false;
        }
        mended_ = std::string(body_);
        mended_[quoted] = mended_[quoted + number.size() + 1] = ' ';
        body_ = mended_;
        return true;
    }

    Template const & model_;
    /// The template with times as 64-bit integers, which have the same bytes, and which it takes as strings
    /// too.
    pml::MetaFactory writing_;
    std::string mended_;
    MetaClass const * cls_;
    bool envelope_;
    InputFile file_;
    JsonStream stream_;
    std::string_view text_;
    std::string_view body_;
    std::size_t shift_ = 0;
};

/// What is read as bytes.
class BytesSource : public Source {
public:
    BytesSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          chosen_(chosenClass(model, options.className, options.code)),
          in_(options.file, options.form) {}

    std::string told(std::string const & kind, std::string const & what) const override {
        return toldInBytes(in_.name(), bytes_, base_, at_, kind, what);
    }
    unsigned long long consumed() const override { return in_.consumed(); }
    unsigned long long size() const override { return in_.size(); }

protected:
    [[noreturn]] void fail(std::size_t at, std::string const & what) {
        at_ = at;
        throw Failure(exitFound, told("error", what));
    }
    /// Holds the body, from `begin` on, to the form of NBR.
    void demandNbr(std::size_t begin) {
        at_ = begin;
        NoVisitor none;
        NbrFault fault;
        if (!readNbr(std::string_view(bytes_).substr(begin), none, fault)) {
            fail(begin + fault.offset, fault.text);
        }
    }

    Template const & model_;
    MetaClass const * chosen_;
    ByteReader in_;
    std::string bytes_;
    unsigned long long base_ = 0;
    /// The place of what is told of the message.
    std::size_t at_ = 0;
};

class NbrSource : public BytesSource {
public:
    NbrSource(ConvertOptions const & options, Template const & model) : BytesSource(options, model) {
        if (chosen_ == nullptr) {
            throw Failure(exitUse, "NBR does not tell its class: --class or --code is needed");
        }
    }

    bool next(Message & message) override {
        if (read_) {
            return false;
        }
        read_ = true;
        bytes_ = readRest(in_, largestMessage);
        if (bytes_.empty()) {
            throw Failure(exitFound, in_.name() + ": is empty");
        }
        demandNbr(0);
        message = Message();
        message.cls = chosen_;
        unsigned short code = 0;
        message.code = readCode(viewOf(tav_istr(chosen_->code)), code) ? code : Message::noCode;
        message.nbr = istrOf(bytes_);
        return true;
    }

private:
    bool read_ = false;
};

class FrameSource : public BytesSource {
public:
    using BytesSource::BytesSource;

    bool next(Message & message) override {
        base_ += bytes_.size();
        bytes_.clear();
        if (!readFrame()) {
            return false;
        }
        message = Message();
        message.enveloped = true;
        message.heartbeat = bytes_.size() == frameHead;
        if (!message.heartbeat) {
            readPacket(message);
        }
        return true;
    }
    bool lost() const override { return lost_; }

private:
    bool readFrame() {
        char head[frameHead];
        std::size_t const got = in_.read(head, frameHead);
        bytes_.assign(head, got);
        if (got == 0) {
            return false;
        }
        lost_ = true;
        if (got < frameHead) {
            fail(got, "the length of a frame has 4 bytes, and " + std::to_string(got) +
                          (got == 1 ? " is" : " are") + " there");
        }
        std::size_t length = 0;
        for (char const c : head) {
            length = length << 8 | static_cast<unsigned char>(c);
        }
        if (length > largestFrame) {
            fail(0, "a frame has at most 16777215 bytes, and not " + std::to_string(length));
        }
        bytes_.resize(frameHead + length);
        bytes_.resize(frameHead + in_.read(&bytes_[0] + frameHead, length));
        if (bytes_.size() < frameHead + length) {
            fail(bytes_.size(), "the frame has " + std::to_string(length) + " bytes, and " +
                                    std::to_string(bytes_.size() - frameHead) + " are there");
        }
        lost_ = false;
        return true;
    }

    void readPacket(Message & message) {
        bool const mobile = bytes_.size() > frameHead + 1 && bytes_[frameHead + 1] != '\0';
        tavSharedPtr<im::Packet> const packet = im::Packet::create(mobile, 0);
        tav_istr const bytes(bytes_.data() + frameHead, static_cast<unsigned>(bytes_.size() - frameHead));
        try {
            if (!packet->decode(bytes)) {
                fail(frameHead, "the head of an old packet begins with three zeros");
            }
        } catch (std::invalid_argument const & e) {
            fail(frameHead, reasonOf(e));
        }
        message.code = packet->code();
        message.envelope = Envelope{
            mobile,        packet->version(), packet->affirm(), packet->sequence(), packet->session(),
            packet->grey()};
        message.nbr = packet->body();
        message.cls = chosen_ != nullptr ? chosen_ : model_.factory->findClass(message.code);
        // The body of a mobile packet is its end; that of an old one stands within.
        at_ = mobile ? bytes_.size() - message.nbr.size() : frameHead;
        if (message.cls != nullptr && !message.nbr.empty()) {
            if (mobile) {
                demandNbr(at_);
            } else {
                NoVisitor none;
                NbrFault fault;
                if (!readNbr(viewOf(message.nbr), none, fault)) {
                    fail(frameHead, "in the body of this packet, byte " + std::to_string(fault.offset) +
                                        ": " + fault.text);
                }
            }
        }
    }

    bool lost_ = false;
};

/// What is read as a whole text of messages.
class TextSource : public Source {
public:
    TextSource(ConvertOptions const & options, Template const & model)
        : model_(model),
          chosen_(chosenClass(model, options.className, options.code)),
          text_(readWhole(options.file, name_, largestMessage)) {}

    std::string told(std::string const & kind, std::string const & what) const override {
        return toldInText(name_, text_, at_, kind, what);
    }
    unsigned long long consumed() const override { return at_; }
    unsigned long long size() const override { return text_.size(); }

protected:
    [[noreturn]] void fail(std::size_t at, std::string const & what) {
        at_ = at;
        throw Failure(exitFound, told("error", what));
    }

    /// Takes the message from a stream; `named` is what the text says of its class.
    void take(tavCodecStream & in, std::string const & named, Message & message) {
        MetaClass const * const cls = chosen_ != nullptr ? chosen_ : model_.factory->findClass(istrOf(named));
        if (cls == nullptr) {
            fail(at_, named.empty() ? "the message does not name its class: --class or --code is needed"
                                    : "there is no class " + named);
        }
        message = Message();
        message.cls = cls;
        unsigned short code = 0;
        message.code = readCode(viewOf(tav_istr(cls->code)), code) ? code : Message::noCode;
        tavNbrOutStream out(false);
        std::vector<std::string> missing;
        try {
            missing = copyMessage(in, out, *cls, *model_.factory, [](std::string_view) { return true; });
        } catch (std::invalid_argument const & e) {
            fail(at_, reasonOf(e));
        }
        if (!missing.empty()) {
            fail(at_, missingFields(missing, *cls));
        }
        message.nbr = out.str();
    }

    Template const & model_;
    MetaClass const * chosen_;
    std::string name_;
    std::string text_;
    std::size_t at_ = 0;
};

class PmlSource : public TextSource {
public:
    PmlSource(ConvertOptions const & options, Template const & model) : TextSource(options, model) {
        try {
            units_ = std::make_unique<PmlText>(text_);
        } catch (PmlFault const & fault) {
            fail(fault.offset(), fault.what());
        }
        if (units_->end() < text_.size()) {
            fail(units_->end(), "what follows is not read");
        }
        next_ = text_.empty() ? tavSharedPtr<pml::Unit>() : units_->first();
    }

    bool next(Message & message) override {
        if (!next_) {
            return false;
        }
        tavSharedPtr<pml::Unit> const unit = next_;
        next_ = unit->next();
        at_ = units_->place(*unit).name;
        tavPmlInStreamImpl impl(unit);
        tavPmlInStream in(&impl, false);
        take(in, unit->type().empty() ? unit->name() : unit->type(), message);
        return true;
    }

private:
    std::unique_ptr<PmlText> units_;
    tavSharedPtr<pml::Unit> next_;
};

class XmlSource : public TextSource {
public:
    XmlSource(ConvertOptions const & options, Template const & model) : TextSource(options, model) {
        std::string rest;
        root_.decode(istrOf(text_), &rest);
        std::size_t const blanks = std::min(rest.find_first_not_of(" \t\r\n"), rest.size());
        if (blanks != rest.size() || root_.tag().empty()) {
            fail(text_.size() - rest.size() + blanks, "the XML breaks off here");
        }
        next_ = &root_;
    }

    bool next(Message & message) override {
        if (next_ == nullptr) {
            return false;
        }
        xml::Node const & node = *next_;
        next_ = node.next();
        // Roots have no places: the first one stands at the begin, and further ones are found by their tags.
        std::size_t const found = text_.find("<" + std::string(node.tag()), at_ + (first_ ? 0 : 1));
        at_ = std::min(found == std::string::npos ? at_ : found, text_.size());
        first_ = false;
        tavXmlInStreamImpl impl(node);
        tavXmlInStream in(&impl, false);
        take(in, node.tag(), message);
        return true;
    }

private:
    xml::Node root_;
    xml::Node const * next_ = nullptr;
    bool first_ = true;
};

} // namespace

std::unique_ptr<Source> makeSource(ConvertOptions const & options, Template const & model) {
    switch (options.from) {
    case Encoding::nbr: return std::make_unique<NbrSource>(options, model);
    case Encoding::pml: return std::make_unique<PmlSource>(options, model);
    case Encoding::xml: return std::make_unique<XmlSource>(options, model);
    case Encoding::frames: return std::make_unique<FrameSource>(options, model);
    default: return std::make_unique<JsonSource>(options, model);
    }
}

} // namespace tool
} // namespace tav

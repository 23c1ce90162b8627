#ifndef TAV_TOOLS_CONVERT_PARTS_H
#define TAV_TOOLS_CONVERT_PARTS_H

#include "tools/input.h"
#include "tools/output.h"
#include "tools/templates.h"

#include <tav/vinta/vinta_basetypes_bytes.h>

#include <functional>
#include <memory>
#include <string>

namespace tav {
namespace tool {

enum class Encoding { nbr, json, pml, xml, frames };
enum class BytesAs { automatic, raw, hex, base64 };

struct ConvertOptions {
    std::string file = "-";
    Form form = Form::automatic;
    Encoding from = Encoding::json;
    Encoding to = Encoding::json;
    BytesAs bytesAs = BytesAs::automatic;
    std::string model;
    std::string className;
    std::string code;
    bool envelope = false;
    bool pretty = false;
    bool keepGoing = false;
};

/// What a packet says beside its code and body.
struct Envelope {
    bool mobile = true;
    unsigned short version = 6;
    unsigned char affirm = 0;
    unsigned long long sequence = 0;
    unsigned long long session = 0;
    bool grey = false;
};

/// A message on its way.  Between any two encodings it is NBR.
struct Message {
    static constexpr unsigned short noCode = 0xFFFF;

    /// An empty frame, which is no message.
    bool heartbeat = false;
    /// Null if the code is of no class: the bytes then go as they are.
    pml::MetaClass const * cls = nullptr;
    unsigned short code = noCode;
    tavBytes nbr;
    /// Whether `envelope` came with the message.
    bool enveloped = false;
    Envelope envelope;
};

/// Gives messages one after the other.
class Source {
public:
    virtual ~Source() = default;
    /// False at the end.  Throws a Failure, with the place, for what is no message.
    virtual bool next(Message & message) = 0;
    /// What is said of the last message, with its place.
    virtual std::string told(std::string const & kind, std::string const & what) const = 0;
    /// Whether there is no way on behind a failure.
    virtual bool lost() const { return false; }
    /// How much of the input has been read, and its size, if that is known.
    virtual unsigned long long consumed() const = 0;
    virtual unsigned long long size() const = 0;
};

/// Takes messages.  What can't be written in the encoding is std::invalid_argument.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void put(Message const & message) = 0;
};

std::unique_ptr<Source> makeSource(ConvertOptions const & options, Template const & model);
std::unique_ptr<Sink> makeSink(ConvertOptions const & options, Template const & model, Output & output);

} // namespace tool
} // namespace tav

#endif

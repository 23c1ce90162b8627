#ifndef TAV_TOOLS_CONVERT_PARTS_H
#define TAV_TOOLS_CONVERT_PARTS_H

#include "tools/failure.h"
#include "tools/input.h"
#include "tools/output.h"
#include "tools/templates.h"

#include <tav/vinta/vinta_basetypes_bytes.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tav {
namespace tool {

enum class Encoding { nbr, json, pml, xml, frames };
enum class BytesAs { automatic, raw, hex, base64 };

struct ConvertOptions {
    std::string file = "-";
    /// A message of the command line in place of a file, if it is not empty; of JSON alone.
    std::string text;
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
    /// Of a mobile packet; bit 0 is grey.
    unsigned char flags = 0;
    std::string extension;
    /// Of an old packet that is not written as it was by its code, sequence and session: its bytes ahead of
    /// the body and behind it.
    std::string ahead;
    std::string behind;
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
    /// What is said of it, by places of the source.
    std::vector<Note> notes;
    /// Whether it came as NBR, which nobody has held to the class.
    bool readAsNbr = false;
    /// Whether `envelope` came with the message.
    bool enveloped = false;
    Envelope envelope;
    /// The frame that it came in, if it came in one.
    std::string frame;
};

/// Gives messages one after the other.
class Source {
public:
    virtual ~Source() = default;
    /// False at the end.  Throws a Failure, with the place, for what is no message.
    virtual bool next(Message & message) = 0;
    /// What is said of the last message, with its place.
    virtual std::string told(std::string const & kind, std::string const & what) const = 0;
    /// The same for a place: of a text its byte, of a message that is read as bytes that of its NBR.
    virtual std::string toldAt(std::size_t at, std::string const & kind, std::string const & what) const = 0;
    /// Whether there is no way on behind a failure.
    virtual bool lost() const { return false; }
    /// How much of the input has been read, and its size, if that is known.
    virtual unsigned long long consumed() const = 0;
    virtual unsigned long long size() const = 0;
};

/// Takes messages, and adds to what is said of them.  What can't be written in the encoding is a PlacedFault,
/// by the bytes of the NBR, or another std::invalid_argument.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void put(Message & message) = 0;
};

std::unique_ptr<Source> makeSource(ConvertOptions const & options, Template const & model);
std::unique_ptr<Sink> makeSink(ConvertOptions const & options, Template const & model, Output & output);

} // namespace tool
} // namespace tav

#endif

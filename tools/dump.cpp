#include "tools/command.h"
#include "tools/dump_tree.h"
#include "tools/failure.h"
#include "tools/input.h"
#include "tools/progress.h"

#include <memory>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t largestInput = 1024ull * 1024 * 1024;
constexpr std::size_t guessedFrom = 64 * 1024;
constexpr std::size_t largestFrame = 0xFFFFFF;
constexpr std::size_t frameHead = 4;
/// Of a text or bytes, unless all of it is wanted.
constexpr std::size_t shownBytes = 200;

struct Options {
    std::string file = "-";
    std::string hex;
    std::string base64;
    bool fromHex = false;
    bool fromBase64 = false;
    Form form = Form::automatic;
    Shape shape = Shape::automatic;
    std::string model;
    std::string className;
    std::string code;
    bool annotate = false;
    bool json = false;
    bool reveal = false;
    bool full = false;
};

std::map<std::string, Shape> const & shapeNames() {
    static std::map<std::string, Shape> const names = {{"auto", Shape::automatic},
                                                       {"nbr", Shape::nbr},
                                                       {"packet", Shape::packet},
                                                       {"frames", Shape::frames},
                                                       {"gate", Shape::gate}};
    return names;
}

/// What one run needs.
class Dump {
public:
    Dump(Options const & options, Output & output) : options_(options), output_(output) {}

    int run();

private:
    std::unique_ptr<ByteReader> open() const;
    bool frames(ByteReader & in, std::string front);
    bool oneFrame(std::string_view bytes, unsigned long long base);
    bool document(std::string const & bytes, Shape shape);
    Shape begin(ByteReader & in, std::string & front);
    void tell(std::string_view bytes, unsigned long long base);

    Options const & options_;
    Output & output_;
    std::string name_;
    /// What was guessed of the input, for whoever finds it broken.
    std::string guess_;
    Template model_;
    pml::MetaClass const * cls_ = nullptr;
    std::unique_ptr<TreeOutput> tree_;
    std::unique_ptr<DumpTree> dump_;
};

std::unique_ptr<ByteReader> Dump::open() const {
    if (options_.fromHex) {
        return std::make_unique<ByteReader>("--hex", options_.hex, Form::hex);
    }
    if (options_.fromBase64) {
        return std::make_unique<ByteReader>("--base64", options_.base64, Form::base64);
    }
    return std::make_unique<ByteReader>(options_.file, options_.form);
}

/// Tells people what is broken, with the bytes around it.
void Dump::tell(std::string_view bytes, unsigned long long base) {
    output_.tell("tav: " + toldInBytes(name_, bytes, base, dump_->faultAt(), "error",
                                       dump_->faultText() + (base == 0 ? guess_ : std::string()),
                                       dump_->hidden()));
}

bool Dump::oneFrame(std::string_view bytes, unsigned long long base) {
    tree_->bytes(bytes, base);
    dump_->forget();
    bool const good = dump_->frame(0, bytes.size(), cls_);
    if (!good) {
        tell(bytes, base);
    }
    return good;
}

/// Frame after frame, each forgotten before the next one is read.
bool Dump::frames(ByteReader & in, std::string front) {
    std::string bytes = std::move(front);
    unsigned long long base = 0;
    auto const want = [&](std::size_t n) {
        if (bytes.size() < n) {
            std::size_t const before = bytes.size();
            bytes.resize(n);
            bytes.resize(before + in.read(&bytes[before], n - before));
        }
    };
    Progress progress;
    for (;;) {
        progress.show(in.consumed(), in.size());
        want(frameHead);
        if (bytes.empty()) {
            return true;
        }
        std::size_t length = 0;
        for (std::size_t i = 0; i < frameHead && i < bytes.size(); ++i) {
            length = length << 8 | static_cast<unsigned char>(bytes[i]);
        }
        bool const readable = bytes.size() >= frameHead && length <= largestFrame;
        std::size_t const size = readable ? frameHead + length : bytes.size();
        want(size);
        if (!oneFrame(std::string_view(bytes).substr(0, size), base)) {
            return false;
        }
        base += std::min(size, bytes.size());
        bytes.erase(0, size);
    }
}

int Dump::run() {
    if (!options_.model.empty()) {
        model_ = loadTemplate(options_.model);
        cls_ = chosenClass(model_, options_.className, options_.code);
    } else if (!options_.className.empty() || !options_.code.empty()) {
        throw Failure(exitUse, "--class and --code need a template: --template FILE");
    }
    std::unique_ptr<ByteReader> const in = open();
    name_ = in->name();
    if (options_.json) {
        tree_ = std::make_unique<JsonTree>(output_);
    } else {
        tree_ = std::make_unique<TextTree>(output_, options_.annotate);
    }
    std::size_t const limit = options_.full || options_.json ? 0 : shownBytes;
    dump_ = std::make_unique<DumpTree>(*tree_, options_.model.empty() ? nullptr : &model_, options_.reveal,
                                       limit);
    InputFile::whenWaiting([this](int) { output_.flush(); });
    std::string front;
    Shape const shape = begin(*in, front);
    if (shape == Shape::frames) {
        return frames(*in, std::move(front)) ? exitGood : exitFound;
    }
    {
        Progress progress(Progress::Beside::nothing);
        front += readRest(*in, largestInput, [&] { progress.show(in->consumed(), in->size()); });
    }
    return document(front, shape) ? exitGood : exitFound;
}

/// Reads as much as is there at once, and tells by it what the input is.
Shape Dump::begin(ByteReader & in, std::string & front) {
    constexpr std::size_t enough = 16;
    bool ended = false;
    while (!ended && front.size() < guessedFrom && (front.size() < enough || in.isReady())) {
        std::size_t const before = front.size();
        front.resize(guessedFrom);
        front.resize(before + in.readSome(&front[before], guessedFrom - before));
        ended = front.size() == before;
    }
    if (front.empty()) {
        throw Failure(exitFound, name_ + ": is empty");
    }
    if (in.guessed() && in.form() == Form::base64) {
        guess_ = " (read as base64; --in says otherwise)";
    }
    if (options_.shape != Shape::automatic) {
        return options_.shape;
    }
    unsigned long long const size = ended ? front.size() : in.form() == Form::raw ? in.size() : 0;
    Shape const shape = guessShape(front, size);
    if (front.substr(0, 3) != "\xFF\x01\x28") {
        guess_ += std::string(" (taken for ") +
                  (shape == Shape::nbr      ? "NBR"
                   : shape == Shape::packet ? "a packet"
                                            : "frames") +
                  "; --as says otherwise)";
    }
    return shape;
}

bool Dump::document(std::string const & bytes, Shape shape) {
    Progress progress;
    dump_->watch([&](std::size_t at) { progress.show(at, bytes.size()); });
    tree_->bytes(bytes, 0);
    bool const good = shape == Shape::packet ? dump_->packet(0, bytes.size(), cls_)
                      : shape == Shape::gate ? dump_->gate(0, bytes.size(), cls_)
                                             : dump_->document(0, bytes.size(), cls_);
    if (!good) {
        tell(bytes, 0);
    }
    return good;
}

} // namespace

Run addDump(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    auto * const file =
        app.add_option("FILE", options->file, "what to show; - is the standard input")->capture_default_str();
    auto * const hex =
        app.add_option("--hex", options->hex, "the bytes themselves, in hexadecimal")->type_name("BYTES");
    auto * const base64 =
        app.add_option("--base64", options->base64, "the bytes themselves, in base64")->type_name("BYTES");
    hex->excludes(file);
    base64->excludes(file)->excludes(hex);
    addChoice(app, "--in", options->form, formNames(), "how bytes stand in FILE");
    addChoice(app, "--as", options->shape, shapeNames(),
              "what they are; auto never takes them for a gate message");
    addModelOptions(app, options->model, options->className, options->code);
    app.add_flag("-a,--annotate", options->annotate, "show each byte beside its meaning");
    app.add_flag("--full", options->full, "show long texts and bytes whole");
    app.add_flag("--reveal", options->reveal, "show values that the template protects");
    app.add_flag("--json", options->json, "print a JSON object for each frame, packet or value");
    return [options, hex, base64](Output & output) {
        options->fromHex = hex->count() != 0;
        options->fromBase64 = base64->count() != 0;
        return Dump(*options, output).run();
    };
}

} // namespace tool
} // namespace tav

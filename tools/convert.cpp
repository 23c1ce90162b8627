#include "tools/command.h"
#include "tools/convert_parts.h"
#include "tools/failure.h"
#include "tools/notes.h"
#include "tools/progress.h"

#include <memory>
#include <stdexcept>

namespace tav {
namespace tool {

namespace {

std::map<std::string, Encoding> const & encodingNames() {
    static std::map<std::string, Encoding> const names = {{"nbr", Encoding::nbr},
                                                          {"json", Encoding::json},
                                                          {"pml", Encoding::pml},
                                                          {"xml", Encoding::xml},
                                                          {"frames", Encoding::frames}};
    return names;
}

std::map<std::string, BytesAs> const & bytesNames() {
    static std::map<std::string, BytesAs> const names = {{"auto", BytesAs::automatic},
                                                         {"raw", BytesAs::raw},
                                                         {"hex", BytesAs::hex},
                                                         {"base64", BytesAs::base64}};
    return names;
}

class Conversion {
public:
    Conversion(ConvertOptions const & options, Output & output) : options_(options), output_(output) {}

    int run() {
        if (options_.model.empty()) {
            throw Failure(exitUse, "--template is needed: it has the classes of the messages");
        }
        Template const model = loadTemplate(options_.model);
        InputFile::whenWaiting([this](int) { output_.flush(); });
        source_ = makeSource(options_, model);
        sink_ = makeSink(options_, model, output_);
        Progress progress;
        while (step()) {
            progress.show(source_->consumed(), source_->size());
        }
        return failed_ ? exitFound : exitGood;
    }

private:
    bool step() {
        Message message;
        try {
            if (!source_->next(message)) {
                return false;
            }
            put(message);
            told_.tell(*source_, message, output_);
        } catch (Failure const & e) {
            told_.tell(*source_, message, output_);
            if (!options_.keepGoing || e.code() != exitFound || source_->lost()) {
                throw;
            }
            output_.tell(std::string("tav: ") + e.what());
            failed_ = true;
        }
        return true;
    }

    void put(Message & message) {
        try {
            sink_->put(message);
        } catch (PlacedFault const & e) {
            throw Failure(exitFound, message.readAsNbr ? source_->toldAt(e.offset(), "error", reasonOf(e))
                                                       : source_->told("error", reasonOf(e)));
        } catch (std::invalid_argument const & e) {
            throw Failure(exitFound, source_->told("error", reasonOf(e)));
        }
    }

    ConvertOptions const & options_;
    Output & output_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<Sink> sink_;
    ToldNotes told_;
    bool failed_ = false;
};

} // namespace

Run addConvert(CLI::App & app) {
    auto const options = std::make_shared<ConvertOptions>();
    app.add_option("FILE", options->file, "what to convert; - is the standard input")->capture_default_str();
    addChoice(app, "--from", options->from, encodingNames(), "the encoding of FILE")->required();
    addChoice(app, "--to", options->to, encodingNames(), "the encoding to write")->required();
    addModelOptions(app, options->model, options->className, options->code);
    addChoice(app, "--in", options->form, formNames(), "how bytes stand in FILE");
    addChoice(app, "--out", options->bytesAs, bytesNames(),
              "how to write bytes; auto: hex on a terminal, else raw");
    app.add_flag("--envelope", options->envelope,
                 "JSON has what the packet says: code, sequence, session, receipt");
    app.add_flag("--pretty", options->pretty, "write JSON, PML and XML on many lines");
    app.add_flag("--keep-going", options->keepGoing,
                 "tell of a wrong message, pass it over, and exit with 1 at the end");
    return [options](Output & output) { return Conversion(*options, output).run(); };
}

} // namespace tool
} // namespace tav

#ifndef TAV_TESTS_SUPPORT_RECORDING_STREAM_H
#define TAV_TESTS_SUPPORT_RECORDING_STREAM_H

#include "tav/vinta/vinta_basetypes_codec.h"

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace tav_test {

/// The data behind a recording input stream.
struct Node {
    /// No stream at all, where a list or map would give one.
    bool absent = false;
    /// A stream whose isNull holds.
    bool null = false;
    long long number = 0;
    std::string text;
    /// By "id:name", as "1:a"; the entries of a combined map by key.
    std::map<std::string, Node> fields;
    std::vector<Node> elements;

    static Node of(long long v) {
        Node node;
        node.number = v;
        return node;
    }
    static Node of(std::string const & v) {
        Node node;
        node.text = v;
        return node;
    }
    static Node list(std::vector<Node> v) {
        Node node;
        node.elements = std::move(v);
        return node;
    }
    static Node object(std::map<std::string, Node> v) {
        Node node;
        node.fields = std::move(v);
        return node;
    }
    static Node nullValue() {
        Node node;
        node.null = true;
        return node;
    }
    static Node absentValue() {
        Node node;
        node.absent = true;
        return node;
    }
};

/// Writes down every call that has an effect, each with the path of its stream: "/1:a io int 5 {...}".
class RecordingStream : public tavCodecStream {
public:
    using tavCodecStream::io;

    using Calls = std::vector<std::string>;

    struct Options {
        bool hides = false;
        bool combined = false;
        bool givesChildren = true;
    };

    /// An output stream.
    RecordingStream(Calls & calls, Options options) : calls_(calls), options_(options) {}
    /// An input stream.
    RecordingStream(Calls & calls, Options options, Node const & node)
        : calls_(calls), options_(options), node_(&node) {}

    bool isNull() const override { return node_ != nullptr && node_->null; }
    bool hideEmpty() const override { return options_.hides; }
    bool isOutputStream() const override { return node_ == nullptr; }
    bool isMapEntryCombined() const override { return options_.combined; }

    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override {
        std::string const key = std::to_string(id) + ":" + std::string(name);
        record("child " + key + (isEmpty() ? " empty" : ""));
        if (!options_.givesChildren) {
            return nullptr;
        }
        if (isOutputStream()) {
            return make(key, nullptr);
        }
        auto const found = node_->fields.find(key);
        return found != node_->fields.end() ? make(key, &found->second) : nullptr;
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override {
        record("getOutputChild");
        return options_.givesChildren ? make("*", nullptr) : nullptr;
    }
    void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) override {
        record("getInputChildren");
        for (Node const & element : node_->elements) {
            children.push_back(element.absent ? nullptr : make("*", &element));
        }
    }
    void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) override {
        record("getInputChildMap");
        for (auto const & field : node_->fields) {
            children[tavString(field.first)] =
                field.second.absent ? nullptr : make(field.first, &field.second);
        }
    }
    void enter(tav_istr className, tav_istr baseName) override {
        record("enter '" + std::string(className) + "' '" + std::string(baseName) + "'");
    }
    void leave() override { record("leave"); }

    void io(tavTime & v, tavCodecMeta const & meta) override {
        simple("tavTime", std::to_string(v.milliseconds()), meta);
        if (!isOutputStream()) {
            v = tavTime::milliseconds(node_->number);
        }
    }
    void io(tavBytes & v, tavCodecMeta const & meta) override {
        simple("tavBytes", std::string(tav_istr(v)), meta);
        if (!isOutputStream()) {
            v = tav_istr(node_->text);
        }
    }
    void io(tavString & v, tavCodecMeta const & meta) override {
        simple("tavString", std::string(tav_istr(v)), meta);
        if (!isOutputStream()) {
            v = node_->text;
        }
    }
    void io(double & v, tavCodecMeta const & meta) override { number("double", v, meta); }
    void io(float & v, tavCodecMeta const & meta) override { number("float", v, meta); }
    void io(unsigned long long & v, tavCodecMeta const & meta) override { number("ulonglong", v, meta); }
    void io(long long & v, tavCodecMeta const & meta) override { number("longlong", v, meta); }
    void io(unsigned long & v, tavCodecMeta const & meta) override { number("ulong", v, meta); }
    void io(long & v, tavCodecMeta const & meta) override { number("long", v, meta); }
    void io(unsigned int & v, tavCodecMeta const & meta) override { number("uint", v, meta); }
    void io(int & v, tavCodecMeta const & meta) override { number("int", v, meta); }
    void io(unsigned short & v, tavCodecMeta const & meta) override { number("ushort", v, meta); }
    void io(short & v, tavCodecMeta const & meta) override { number("short", v, meta); }
    void io(unsigned char & v, tavCodecMeta const & meta) override { number("uchar", v, meta); }
    void io(char & v, tavCodecMeta const & meta) override { number("char", v, meta); }
    void io(bool & v, tavCodecMeta const & meta) override {
        simple("bool", v ? "true" : "false", meta);
        if (!isOutputStream()) {
            v = node_->number != 0;
        }
    }

    void writeNull() override { record("writeNull"); }
    void makeArrayValue() override { record("makeArrayValue"); }
    void makeObjectValue() override { record("makeObjectValue"); }
    void on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                            tavCodecMeta const & meta) override {
        std::ostringstream out;
        out << "field " << id << ":" << name << " (";
        for (int const value : values) {
            out << " " << value;
        }
        out << " ) " << meta;
        record(out.str());
    }

private:
    RecordingStream(Calls & calls, Options options, Node const * node, std::string path)
        : calls_(calls), options_(options), node_(node), path_(std::move(path)) {}

    tavSharedPtr<tavCodecStream> make(std::string const & step, Node const * node) {
        return new RecordingStream(calls_, options_, node, path_ + "/" + step);
    }
    void record(std::string const & call) { calls_.push_back(path_.empty() ? call : path_ + " " + call); }
    void simple(char const * type, std::string const & value, tavCodecMeta const & meta) {
        std::ostringstream out;
        out << "io " << type << " " << (isOutputStream() ? value : std::string("?")) << " " << meta;
        record(out.str());
    }
    template <class N>
    void number(char const * type, N & v, tavCodecMeta const & meta) {
        std::ostringstream value;
        value << +v;
        simple(type, value.str(), meta);
        if (!isOutputStream()) {
            v = static_cast<N>(node_->number);
        }
    }

    Calls & calls_;
    Options options_;
    Node const * node_ = nullptr;
    std::string path_;
};

} // namespace tav_test

#endif

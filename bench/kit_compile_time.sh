#!/usr/bin/env bash
# What ten message classes cost to compile, declared by the kit and by hand.  Each file is compiled as often as the first
# argument says (5), in turns; the best time of each counts.  CXX and CXXFLAGS choose the compiler.  With a second argument,
# it fails if the kit takes more than so many times the time by hand with the header that such classes need; with a third
# one, if the kit with a keeper does.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-5}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fields='    tavString text;
    int mood = 0;
    long long at = 0;
    tavOptional<tavString> topic;
    std::vector<tavString> tags;
    std::map<tavString, int> votes;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text);
        ioField(s, 2, "mood", mood);
        ioField(s, 3, "at", at);
        ioField(s, 4, "topic", topic);
        ioField(s, 5, "tags", tags);
        ioField(s, 6, "votes", votes);
    }'
uses() { # What a program does with its classes: one of each on its way.
    echo 'void use(tav::tls::client & client) {'
    for i in $(seq 10); do
        echo "    client.send_msg(Message$i(), tav::tls::send_option());"
    done
    echo '}'
}
{
    echo '#include <tav/vinta/vinta_tls_client.h>'
    for i in $(seq 10); do
        cat <<END
struct Message$i : tavMessage {
    unsigned short msgcode() const override { return $((0x3000 + i)); }
    tav_istr className() const override { return "Message$i"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Message$i; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Message$i const *>(&other)) {
            *this = *from;
        }
    }
$fields
};
END
    done
    uses
} >"$work/hand.cpp"
{
    echo '#include <tav/kit/kit.h>'
    for i in $(seq 10); do
        cat <<END
struct Message$i : tav::kit::message<Message$i> {
    static constexpr char const * type_name = "Message$i";
    static constexpr unsigned short type_code = $((0x3000 + i));
$fields
};
END
    done
    uses
} >"$work/kit.cpp"
# The same by a keeper, whose header is not part of kit.h.
sed 's,#include <tav/kit/kit.h>,&\n#include <tav/kit/keeper.h>,; s/^void use(.*/void use(tav::kit::keeper \& client) {/
     s/client.send_msg(\(.*\), tav::tls::send_option());/(void)send(client, \1);/' "$work/kit.cpp" >"$work/keeper.cpp"
sed 's,tav/vinta/vinta_tls_client.h,tav/vinta/vinta.h,' "$work/hand.cpp" >"$work/hand_all.cpp"

declare -A best
for _ in $(seq "$runs"); do
    for name in hand hand_all kit keeper; do
        # User and system time: what other programs do meanwhile counts little.
        TIMEFORMAT='%U %S'
        taken=$({ time ${CXX:-c++} -std=c++17 ${CXXFLAGS:--O2} -I"$root/include" -c "$work/$name.cpp" -o "$work/$name.o"; } 2>&1 |
            awk '{ print int(($1 + $2) * 1000) }')
        if [ -z "${best[$name]:-}" ] || [ "$taken" -lt "${best[$name]}" ]; then
            best[$name]=$taken
        fi
    done
done
echo "by hand, vinta_tls_client.h: ${best[hand]} ms"
echo "by hand, vinta.h:            ${best[hand_all]} ms"
echo "by the kit, kit.h:           ${best[kit]} ms"
echo "by the kit, keeper.h:        ${best[keeper]} ms"
awk "BEGIN { printf \"the kit takes %.2f times the time by hand (vinta_tls_client.h), %.2f times (vinta.h)\\n\",
             ${best[kit]} / ${best[hand]}, ${best[kit]} / ${best[hand_all]}
             printf \"with a keeper %.2f times (vinta_tls_client.h)\\n\", ${best[keeper]} / ${best[hand]} }"
[ -z "${2:-}" ] || awk "BEGIN { exit ${best[kit]} > $2 * ${best[hand]} }"
[ -z "${3:-}" ] || awk "BEGIN { exit ${best[keeper]} > $3 * ${best[hand]} }"

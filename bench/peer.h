#ifndef TAV_BENCH_PEER_H
#define TAV_BENCH_PEER_H

#include "message.h"
#include "message.pb.h"

/// The content of `tav_bench_own::sample` as the peer holds it.
inline tav_bench::Note peerSample() {
    tav_bench_own::Note const own = tav_bench_own::sample();
    tav_bench::Note note;
    note.set_from(own.from.data());
    note.set_to(own.to.data());
    note.set_topic(own.topic.data());
    note.set_text(own.text.data());
    note.set_mood(own.mood);
    note.set_flags(own.flags);
    note.set_at(own.at);
    note.set_urgent(own.urgent);
    note.set_weight(own.weight);
    for (tavString const & tag : own.tags) {
        note.add_tags(tag.data());
    }
    note.mutable_place()->set_city(own.place.city.data());
    note.mutable_place()->set_floor(own.place.floor);
    note.mutable_place()->set_height(own.place.height);
    note.set_digest(std::string(tav_istr(own.digest)));
    return note;
}

#endif

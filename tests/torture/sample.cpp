#include "torture/sample.h"

#include "torture/torture.h"

namespace tav_test {
namespace torture {
namespace {

Place placeOf(char const * city, int floor) {
    Place made;
    made.city = city;
    made.floor = floor;
    return made;
}

Everything makeSample() {
    tavEnum<Mood>::add(Mood::good, "good");
    tavEnum<Mood>::add(Mood::bad, "bad");
    Everything out;
    out.urgent = true;
    out.at = 1600000000123;
    out.weight = 12.5;
    out.text = "a text of \"some\" length (with brackets) <and> more: & \\ / what not";
    out.secret = "a secret that nobody is to see in any log";
    out.standard = "a standard text that is longer than what fits into its object";
    out.digest = tavBytes(tav_istr("\0\1\2\3 bytes that are longer than an object itself", 48u));
    out.mood = Mood::bad;
    out.reply = tavString("a reply that there need not be, but there is");
    out.place = placeOf("a city with a name of some length", 7);
    out.home = new Place(placeOf("another city with a name of some length", 8));
    out.numbers = {1, -2, 300, 70000};
    out.route = {placeOf("the first place of a route of two", 1), placeOf("the second place of it", 2)};
    out.stops = {tavSharedPtr<Place>(new Place(placeOf("a stop on the way, with a long name", 3)))};
    out.table = {{"one", "two, which is a little longer than the first"}, {"three"}};
    out.votes[tavString("a_name_with_a_vote_or_two_of_them")] = 2;
    out.names[5] = "the name of the number five, at full length";
    out.rooms[tavString("a_room_with_a_name_of_its_own")] = placeOf("the city where the room is", 4);
    return out;
}

Written writeSample() {
    Everything object = sample();
    Written out;
    out.nbr = bytesOf(object.encode(true));
    out.json = bytesOf(object.encodeJson(true));
    tavPmlOutStream pml;
    object.io(pml);
    out.pml = pml.str(false, false);
    tavXmlOutStream xml("message");
    const_cast<Everything &>(sampleForXml()).io(xml);
    out.xml = bytesOf(xml.str(false));
    out.line = bytesOf(object.dump(true, 0));
    return out;
}

} // namespace

char const * const sampleTemplate =
    "Place:object(__class__(im.Place) __code__(2002) [1]city:string() [2]floor:int32?(0{-100..1000}))\n"
    "Everything:object(__class__(im.Everything) __code__(2001)\n"
    "[1]urgent:bool?() [2]at:int64() [3]weight:double?() [5]text:string?()\n"
    "[6]secret:string?({..***..}) [7]standard:u8string?() [8]digest:bytes?()\n"
    "[9]mood:enum{Mood}(good(0) bad(1)) [10]reply:string?()\n"
    "[11]place:im.Place?() [12]home:ref{im.Place}?() [13]numbers:list{int32}() [14]route:list{im.Place}()\n"
    "[15]stops:ref_list{im.Place}() [17]votes:map{string,int32}() [18]names:map{int64,string}()\n"
    "[19]rooms:map{string,im.Place}())\n"
    "Inner:object(__class__(im.Inner) [1]deep:map{string}(d:object(__class__(im.Deep) [1]x:int32?())))\n";

Everything const & sample() {
    static Everything const * const made = [] {
        Spared const spared;
        return new Everything(makeSample());
    }();
    return *made;
}

Everything const & sampleForXml() {
    static Everything const * const made = [] {
        Spared const spared;
        auto * const object = new Everything(sample());
        object->names.clear();
        return object;
    }();
    return *made;
}

Written const & written() {
    static Written const * const made = [] {
        Spared const spared;
        return new Written(writeSample());
    }();
    return *made;
}

tav::pml::MetaFactory const & factory() {
    static tav::pml::MetaFactory const * const made = [] {
        Spared const spared;
        tav::pml::PmlInputStream in{tav_istr(sampleTemplate)};
        return new tav::pml::MetaFactory(in);
    }();
    return *made;
}

} // namespace torture
} // namespace tav_test

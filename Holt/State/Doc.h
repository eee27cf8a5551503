// A state as a document: a copy of what is live, or what a JSON dump says, with the types that the
// modules know. Dumps are written from it, compared by it, and applied from it.
//
//     {
//        "format": "ptpstate dump 1",
//        "places": [
//           {
//              "root": {"type": "Ptp::Config", "name": "ptp/config"},
//              "path": "ptp/config",
//              "state": {"enabled": true, ..., "intfConfig": {"Ethernet1": {...}}}
//           }
//        ]
//     }
//
// An entity is an object, its members in the order of their ids, as far as they travel. A child
// that is not there is null; one that is made with a name has it as "@name". Maps and collections
// of children are objects by key, hashed ones in the natural order of their keys; a queue is
// `{"next": NUMBER, "elements": [...]}`. `Json.h` tells of values.
#pragma once

#include <memory>

#include "Holt/State/Json.h"
#include "Holt/State/Place.h"

namespace Holt {

struct DocEntity;

/// An element of a map, or a child with its key. Of a queue's element and a singleton child the key
/// is null.
struct DocElement {
   std::unique_ptr<Kiv::AnyValue> key;
   std::unique_ptr<Kiv::AnyValue> value;
   std::unique_ptr<DocEntity> child;
};

struct DocMember {
   Kiv::FieldDescriptor const* field = nullptr;
   /// The value of a single member; else null.
   std::unique_ptr<Kiv::AnyValue> value;
   std::vector<DocElement> elements;
   /// Of a queue: the number of the next element.
   U32 next = 1;
};

struct DocEntity {
   Kiv::TypeImpl const* type = nullptr;
   /// Of a child that is made with a name.
   Sarn::String name;
   std::vector<DocMember> members;
};

/// What stands at a path. Exactly one of the three is there.
struct DocPlace {
   Path path;
   /// The path with its keys as the types print them.
   Sarn::String text;
   std::unique_ptr<DocEntity> entity;
   /// A collection or a queue as a whole.
   std::unique_ptr<DocMember> member;
   /// An attribute, an element of a map, a field of either.
   std::unique_ptr<Kiv::AnyValue> value;
};

struct StateDoc {
   std::vector<DocPlace> places;
};

/// A copy of an entity and all below it.
std::unique_ptr<DocEntity> docOf(Kiv::Entity const& entity);
/// A copy of what stands at a place. Throws `Failure` where there is nothing.
DocPlace docOf(Place const& place, Path const& path);

Json jsonOf(DocEntity const& entity);
Json jsonOf(DocPlace const& place);
Json jsonOf(StateDoc const& doc);
/// As dumps are written, indented, with a newline at the end.
std::string jsonText(Json const& json);

/// What is wrong with a document, one line each: "PATH: what".
using DocErrors = std::vector<Sarn::String>;

/// Reads a document. What cannot be read is left out of it and told in `errors`. Throws `Failure`
/// that names `source` if it is no dump at all.
StateDoc readStateDoc(Json const& json, std::string const& source, DocErrors& errors);

/// Reads a file, "-" for standard input, and the document in it. Throws `Failure`.
StateDoc readStateFile(std::string const& file, DocErrors& errors);

}  // namespace Holt

// A state as a document: a copy of a live state, or the contents of a JSON dump, with the types of
// the loaded modules. Dumps are written from documents, compared as documents, and applied from
// them.
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
// An entity is an object with its streamed and read-only members in the order of their ids. An
// absent child is null; a child that is constructed with a name has it as "@name". Maps and
// collections of children are objects with a member for each key, hashed ones in the natural order
// of their keys; a queue is `{"next": NUMBER, "elements": [...]}`. `Json.h` describes values. A
// name that is not UTF-8 is written like a string value that is not.
#pragma once

#include <memory>

#include "Holt/State/Json.h"
#include "Holt/State/Place.h"

namespace Holt {

struct DocEntity;

/// An element of a map or of a queue, or a child. An element of a queue and a singleton child have
/// no key: it is null.
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
   /// Of a queue: the number that its next element will get.
   U32 next = 1;
};

struct DocEntity {
   Kiv::TypeImpl const* type = nullptr;
   /// Of a child that is constructed with a name; else empty.
   Sarn::String name;
   std::vector<DocMember> members;
};

/// What is at a path: exactly one of `entity`, `member` and `value` is set.
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

/// Copies an entity and everything below it.
std::unique_ptr<DocEntity> docOf(Kiv::Entity const& entity);
/// Copies what is at a place. Throws `Failure` if there is nothing.
DocPlace docOf(Place const& place, Path const& path);

/// Copies whole roots.
StateDoc docOf(std::vector<Kiv::NamedEntity*> const& roots);

Json jsonOf(DocEntity const& entity);
Json jsonOf(DocPlace const& place);
Json jsonOf(StateDoc const& doc);
/// The text of a dump: indented, with a newline at the end.
std::string jsonText(Json const& json);

/// What is wrong with a document, one printable line each: "PATH: what".
using DocErrors = std::vector<Sarn::String>;

/// Reads a document. Whatever cannot be read is left out and added to `errors`. Throws `Failure`,
/// which names `source`, if it is not a dump at all.
StateDoc readStateDoc(Json const& json, std::string const& source, DocErrors& errors);

/// Reads the state of one place, which `jsonOf(DocPlace)` writes. Throws `Failure` if there can be
/// no such place.
DocPlace readStateAt(Json const& json, Path const& path, DocErrors& errors);

/// Reads a file, "-" for standard input, and the document in it. Throws `Failure`.
StateDoc readStateFile(std::string const& file, DocErrors& errors);

}  // namespace Holt

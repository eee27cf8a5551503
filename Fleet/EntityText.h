// An entity's own attributes as one line of JSON, and back.
//
//     {"portState":"master","offsetFromMaster":-12.5,"counters":{"sync":17}}
//
// Members are in the order of their ids: those that the attribute log carries, and the arguments of
// the constructor. Children are not among them; each has a message of its own. Values are those of
// `Holt/State/Json.h`. The same state gives the same bytes in every process.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Kiv/Entity.h"

namespace Fleet {

/// The members of a type that are published, by name.
class EntityMembers {
public:
   explicit EntityMembers(Kiv::TypeImpl const& type);

   std::vector<Kiv::FieldDescriptor const*> const& all() const noexcept { return all_; }
   /// Null if there is no such member.
   Kiv::FieldDescriptor const* find(std::string_view name) const;

private:
   std::vector<Kiv::FieldDescriptor const*> all_;
   std::unordered_map<std::string_view, Kiv::FieldDescriptor const*> byName_;
};

/// A member of the text of an entity: name and JSON, both within that text.
struct TextMember {
   std::string_view name;
   std::string_view json;
};

/// Splits the text of an entity into its members, which `members` then holds. Returns what is
/// wrong, or an empty text; values are not examined beyond their extent.
std::string_view splitEntityText(std::string_view text, std::vector<TextMember>& members);

/// What went wrong when a text was applied.
struct ApplyProblems {
   /// Printable lines, "attribute: what"; at most ten.
   std::vector<std::string> texts;
   /// How many there were.
   U64 count = 0;
   /// Members of the text that the type does not have, as from a newer release.
   U64 unknown = 0;

   void add(std::string_view member, std::string_view what);
};

/// Writes entities and applies texts to them. Keeps what it has learned about types, and scratch
/// memory: one for each publisher or mirror.
class EntityText {
public:
   /// Appends the text of an entity.
   void write(Kiv::Entity const& entity, std::string& out);

   /// Brings an entity to the state of a text, through its setters and only where it differs. What
   /// the text lacks stays as it is; what cannot be applied is left out and reported. Returns
   /// false, with a problem, if it is no text of an entity at all.
   bool apply(Kiv::Entity& entity, std::string_view text, ApplyProblems& problems);

   /// Creates the child of a collection with the constructor arguments in `text`, or finds it.
   /// Null, with a problem, if they are missing or refused.
   Sarn::Ptr<Kiv::Entity> makeChild(Kiv::Entity& parent, Kiv::FieldDescriptor const& field,
                                    Kiv::ValueRef key, std::string_view text,
                                    ApplyProblems& problems);
   /// Whether the child was constructed with other constant arguments than `text` has.
   bool wasMadeOtherwise(Kiv::Entity const& child, std::string_view text);
   /// The name of a child that is constructed with one; empty if the text has none.
   std::string nameIn(std::string_view text);

private:
   EntityMembers const& membersOf(Kiv::TypeImpl const& type);
   void writeMember(Kiv::Entity const& entity, Kiv::FieldDescriptor const& field, std::string& out);
   void applyMember(Kiv::Entity& entity, Kiv::FieldDescriptor const& field, std::string_view json,
                    ApplyProblems& problems);

   std::unordered_map<Kiv::TypeImpl const*, std::unique_ptr<EntityMembers>> types_;
   std::vector<TextMember> split_;
   std::string now_;
};

}  // namespace Fleet

#pragma once

#include "Kiv/TypeImpl.h"

/// Module records: what each module registers when it is loaded, laid out so that a program can
/// walk it without a header. All numbers are in the machine's byte order, little-endian.
namespace Kiv {

/// 16 bytes per defined type, in name order.
struct TypeRecord {
   /// Bits 0-19: kind flags; bits 20-31: offset of the name in the type-name table.
   U32 kindAndName;
   /// Bits 0-15: size of a value or entity in memory; bits 16-23: its alignment.
   U32 sizeFlags;
   U16 memberCount;
   U16 firstMember;
   /// Bit 0: derived from another type; bit 1: has a name.
   U32 flags;

   static constexpr U32 entityKind = 0x60;
   /// An entity that is made without arguments.
   static constexpr U32 plainEntityKind = 0x260;
   static constexpr U32 valueKind = 0x21;
   static constexpr U32 enumerationKind = 0x25;
   static constexpr U32 kindMask = 0xfffff;

   U32 kind() const noexcept { return kindAndName & kindMask; }
   U32 nameOffset() const noexcept { return kindAndName >> 20; }
};
static_assert(sizeof(TypeRecord) == 16);

/// 20 bytes per member or enumerator, grouped by type in type order.
struct MemberRecord {
   U16 id;
   U16 kind;
   /// Bytes 4-9: bits 0-11 are the offset of the member's type in the type-name table (0xfff:
   /// none), bits 28-43 the offset of its name in the member-name table.
   U16 packed[3];
   U16 owner;
   U16 value;
   U16 zero[3];

   static constexpr U64 noType = 0xfff;

   U64 packedBits() const noexcept {
      return packed[0] | U64{packed[1]} << 16 | U64{packed[2]} << 32;
   }
   U32 nameOffset() const noexcept { return static_cast<U32>(packedBits() >> 28 & 0xffff); }
   U32 typeNameOffset() const noexcept { return static_cast<U32>(packedBits() & 0xfff); }
};
static_assert(sizeof(MemberRecord) == 20);

constexpr TypeRecord typeRecord(U32 kind, U32 nameOffset, std::size_t size, std::size_t alignment,
                                U16 memberCount, U16 firstMember, U32 flags) {
   return {kind | nameOffset << 20,
           static_cast<U32>(size & 0xffff) | static_cast<U32>(alignment) << 16, memberCount,
           firstMember, flags};
}

constexpr MemberRecord memberRecord(U16 id, U16 kind, U64 nameOffset, U64 typeNameOffset,
                                    U16 owner = 0, U16 value = 0) {
   U64 const bits = typeNameOffset | nameOffset << 28;
   return {id,
           kind,
           {static_cast<U16>(bits), static_cast<U16>(bits >> 16), static_cast<U16>(bits >> 32)},
           owner,
           value,
           {0, 0, 0}};
}

/// Four counts per type.
struct TypeCounts {
   U32 members;
   /// Members that travel in the attribute log.
   U32 streamed;
   U32 collections;
   U32 operations;
};
static_assert(sizeof(TypeCounts) == 16);

/// The rest of a module's descriptor.
struct ModuleData {
   char const* name;
   /// Part of the module's identity; both ends of a stream must have the same.
   U32 hash;
   U32 dependsOnCount;
   /// Names of the modules that this one depends on.
   char const* const* dependsOn;
   /// The type data, in the order of the type records.
   TypeImpl const* const* types;
   /// The registry's link, and how often the module was added to it.
   KivModule const* next;
   U32 registrations;
};

struct KivModule {
   TypeRecord const* typeRecords;
   MemberRecord const* memberRecords;
   ModuleData* data;
   char const* typeNames;
   char const* memberNames;
   TypeCounts const* counts;
   /// The function table of each type: `EntityFunctions` or `ValueFunctions`, null for an
   /// enumeration.
   void const* const* functions;
   U32 typeCount;

   char const* name() const noexcept { return data->name; }
   U32 hash() const noexcept { return data->hash; }
};

/// Adds a module at the end of the process's registry. Called by each module's initializer at load.
/// Allocates nothing. A module that is registered already keeps its place until it has been removed
/// as often as it was added.
void kivModuleIs(KivModule const& module) noexcept;
/// Removes it again.
void kivModuleDel(KivModule const& module) noexcept;
/// The same when the library that holds the module is unloaded; `within` is any address inside the
/// library. Also forgets the library's allocation counters, which are about to be unmapped too.
void kivModuleUnloaded(KivModule const& module, void const* within) noexcept;

/// The registered modules, in the order of registration: first, then `data->next`.
KivModule const* firstModule() noexcept;
KivModule const* moduleByName(std::string_view name) noexcept;
/// A defined type by its qualified name ("Ptp::Config"), or null. O(modules * log types).
TypeImpl const* typeByName(std::string_view name) noexcept;

}  // namespace Kiv

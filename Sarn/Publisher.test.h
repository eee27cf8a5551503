// Publishers in a tree and observers that can be scripted, for tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Sarn/FirstObserver.h"

namespace SarnTest {

/// A publisher with a name, for tests that hang publishers into trees themselves.
class Source : public Sarn::Publisher {
public:
   explicit Source(std::string sourceName) : name(std::move(sourceName)) {}
   ~Source() {
      parentIs(nullptr);
      while (!children_.empty()) {
         children_.back()->parentIs(nullptr);
      }
   }

   void parentIs(Source* parent) {
      if (Source* const old = this->parent()) {
         std::erase(old->children_, this);
      }
      changeWatch([&] { parentPublisherIs(parent); });
      if (parent != nullptr) {
         parent->children_.push_back(this);
      }
   }
   Source* parent() const { return static_cast<Source*>(parentPublisher()); }

   void observerAdd(Sarn::Observer& observer, Sarn::Scope scope = Sarn::Scope::entity) {
      if (scope == Sarn::Scope::subtree) {
         changeWatch([&] { add(observer, scope); });
      } else {
         add(observer, scope);
      }
   }
   void observerAddFirst(Sarn::FirstObserver& observer) {
      changeWatch([&] { addFirst(observer); });
   }
   bool observerDel(Sarn::Observer& observer, Sarn::Scope scope = Sarn::Scope::entity) {
      if (scope == Sarn::Scope::entity) {
         return remove(observer, scope);
      }
      bool removed = false;
      changeWatch([&] { removed = remove(observer, scope); });
      return removed;
   }
   void change(U16 id) { publishChangeRecursive(id, nullptr, nullptr, nullptr); }

   std::string name;

private:
   /// As entities do.
   template <class Make>
   void changeWatch(Make const& make) {
      Heritage const before = heritage();
      make();
      inherit();
      if (heritage() != before) {
         passOn();
      }
   }
   void passOn() {
      for (Source* const child : children_) {
         if (child->inherit()) {
            child->passOn();
         }
      }
   }

   std::vector<Source*> children_;
};

/// Writes "observer:source.id" to a log, then does what it was told to do.
class Scripted final : public Sarn::FirstObserver {
public:
   using Script = std::function<void(Sarn::Change const&)>;

   Scripted(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}

   void onChange(Sarn::Change const& change) override {
      log_.push_back(name_ + ":" + static_cast<Source&>(change.source).name + "." +
                     std::to_string(change.attributeId));
      if (script) {
         script(change);
      }
   }

   /// Has room for the value of one change, and remembers which.
   U8* roomFor(U16 attributeId, std::size_t size, Sarn::Publisher const& source) noexcept override {
      log_.push_back(name_ + " takes " + std::to_string(size) + " bytes of " +
                     static_cast<Source const&>(source).name + "." + std::to_string(attributeId));
      return room;
   }

   Script script;
   U8 room[8] = {};

private:
   std::string name_;
   std::vector<std::string>& log_;
};

}  // namespace SarnTest

// Long random runs of publishers and observers, against a model that keeps plain lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include "Sarn/Publisher.test.h"

namespace {

using Sarn::Scope;

constexpr int publisherCount = 6;
constexpr int observerCount = 5;

struct Thrown : std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// Six publishers and five observers, numbered, and what can be done with them. `told` is called
/// by both implementations for each notification; what it does then is drawn from the same random
/// numbers, so both see the same script as long as they behave alike.
class World {
public:
   explicit World(unsigned seed) : random_(seed) {}
   virtual ~World() = default;

   std::vector<std::string> log;

   void run() {
      for (int step = 0; step != 300; ++step) {
         budget_ = 12;
         act();
      }
   }

protected:
   virtual void change(int publisher, U16 id) = 0;
   /// Whether the first observer alone was to be told, and was, without a publication.
   virtual bool bypass(int publisher, U16 id) = 0;
   virtual void observerAdd(int publisher, int observer, Scope scope, bool first) = 0;
   virtual bool observerDel(int publisher, int observer, Scope scope) = 0;
   virtual bool hasObserver(int publisher, int observer, Scope scope) = 0;
   virtual bool watched(int publisher) = 0;
   /// Destroys a publisher, and makes one without parent and observers in its place.
   virtual void renew(int publisher) = 0;
   /// A parent has a smaller number than its child; -1: none.
   virtual void parentIs(int publisher, int parent) = 0;

   void gaveRoom(int observer, int source, U16 id) {
      note("o" + std::to_string(observer) + " takes p" + std::to_string(source) + "." +
           std::to_string(id));
   }
   void told(int observer, int source, U16 id) {
      note("o" + std::to_string(observer) + ":p" + std::to_string(source) + "." +
           std::to_string(id));
      int const actions = below(3);
      for (int i = 0; i != actions; ++i) {
         act();
      }
      if (below(12) == 0) {
         throw Thrown("o" + std::to_string(observer) + " at " + std::to_string(id));
      }
   }

private:
   int below(int bound) { return static_cast<int>(random_() % static_cast<unsigned>(bound)); }
   void note(std::string text) { log.push_back(std::move(text)); }

   void act() {
      if (--budget_ < 0) {
         return;
      }
      int const p = below(publisherCount);
      int const o = below(observerCount);
      Scope const scope = below(2) == 0 ? Scope::entity : Scope::subtree;
      switch (below(10)) {
         case 0:
         case 1:
            if (!hasObserver(p, o, scope)) {
               bool const first = below(4) == 0;
               observerAdd(p, o, scope, first && scope == Scope::subtree);
            }
            return;
         case 2:
            note(observerDel(p, o, scope) ? "removed" : "was not there");
            return;
         case 3:
            if (below(3) == 0) {
               renew(p);
            }
            return;
         case 4:
            parentIs(p, below(p + 1) - 1);
            return;
         case 5:
            note(watched(p) ? "watched" : "unwatched");
            return;
         default:
            ++lastId_;
            if (below(2) == 0 && bypass(p, lastId_)) {
               return;
            }
            try {
               change(p, lastId_);
            } catch (Thrown const& error) {
               note(std::string("caught ") + error.what());
               if (budget_ > 0 && below(2) == 0) {
                  return;
               }
            }
      }
   }

   std::mt19937 random_;
   int budget_ = 0;
   U16 lastId_ = 0;
};

class Real final : public World {
public:
   explicit Real(unsigned seed) : World(seed) {
      for (int i = 0; i != publisherCount; ++i) {
         publishers_.push_back(std::make_unique<Numbered>(i));
      }
      // A first observer is that of one publisher, so each publisher has its own.
      for (int i = 0; i != publisherCount * observerCount; ++i) {
         observers_.push_back(std::make_unique<Teller>(*this, i % observerCount));
      }
   }

private:
   struct Numbered : SarnTest::Source {
      explicit Numbered(int n) : Source(std::to_string(n)), number(n) {}
      int number;
   };
   struct Teller final : Sarn::FirstObserver {
      Teller(Real& w, int n) : world(w), number(n) {}
      void onChange(Sarn::Change const& change) override {
         world.told(number, static_cast<Numbered&>(change.source).number, change.attributeId);
      }
      U8* roomFor(U16 id, std::size_t, Sarn::Publisher const& source) noexcept override {
         world.gaveRoom(number, static_cast<Numbered const&>(source).number, id);
         return room;
      }
      Real& world;
      int number;
      U8 room[1] = {};
   };

   void change(int p, U16 id) override { at(p).change(id); }
   bool bypass(int p, U16 id) override {
      return at(p).watched() && at(p).mayBypass() && at(p).bypass(id, 1) != nullptr;
   }
   void observerAdd(int p, int o, Scope scope, bool first) override {
      if (first) {
         at(p).observerAddFirst(observer(p, o));
      } else {
         at(p).observerAdd(observer(p, o), scope);
      }
   }
   bool observerDel(int p, int o, Scope scope) override {
      return at(p).observerDel(observer(p, o), scope);
   }
   bool hasObserver(int p, int o, Scope scope) override {
      return at(p).hasObserver(observer(p, o), scope);
   }
   bool watched(int p) override { return at(p).watched(); }
   void renew(int p) override {
      publishers_[static_cast<std::size_t>(p)].reset();
      publishers_[static_cast<std::size_t>(p)] = std::make_unique<Numbered>(p);
   }
   void parentIs(int p, int parent) override {
      at(p).parentIs(parent < 0 ? nullptr : publishers_[static_cast<std::size_t>(parent)].get());
   }

   Numbered& at(int p) { return *publishers_[static_cast<std::size_t>(p)]; }
   Teller& observer(int p, int o) {
      return *observers_[static_cast<std::size_t>(p * observerCount + o)];
   }

   std::vector<std::unique_ptr<Teller>> observers_;
   std::vector<std::unique_ptr<Numbered>> publishers_;
};

/// The same, as one would write it without a thought for speed: every publication copies who is to
/// be told before it tells them.
class Model final : public World {
public:
   explicit Model(unsigned seed) : World(seed), publishers_(publisherCount) {
      for (Publisher& p : publishers_) {
         p.life = ++lives_;
      }
   }

private:
   struct Registration {
      int number;
      int observer;
      Scope scope;
      bool first;
   };
   struct Publisher {
      int life = 0;
      int parent = -1;
      std::vector<Registration> list;
   };
   struct Publication {
      int source;
      int sourceLife;
      U16 id;
      int at;
      int atLife;
      std::vector<int> left;
      bool done = false;
   };

   Publisher& publisher(int p) { return publishers_[static_cast<std::size_t>(p)]; }
   static auto find(Publisher& p, int o, Scope scope) {
      return std::find_if(p.list.begin(), p.list.end(), [&](Registration const& r) {
         return r.observer == o && r.scope == scope;
      });
   }

   void enter(Publication& publication, int p) {
      publication.at = p;
      publication.atLife = publisher(p).life;
      publication.left.clear();
      for (Registration const& r : publisher(p).list) {
         if (p == publication.source || r.scope == Scope::subtree) {
            publication.left.push_back(r.number);
         }
      }
   }
   bool over(Publication const& publication) {
      return publication.done || publisher(publication.source).life != publication.sourceLife ||
             publisher(publication.at).life != publication.atLife;
   }
   void tell(std::size_t index) {
      while (!over(running_[index])) {
         Publication& publication = running_[index];
         if (publication.left.empty()) {
            int const parent = publisher(publication.at).parent;
            if (parent < 0) {
               publication.done = true;
            } else {
               enter(publication, parent);
            }
            continue;
         }
         int const number = publication.left.front();
         publication.left.erase(publication.left.begin());
         for (Registration const& r : publisher(publication.at).list) {
            if (r.number == number) {
               told(r.observer, publication.source, publication.id);
               break;
            }
         }
      }
   }

   void change(int p, U16 id) override {
      if (!watched(p)) {
         return;
      }
      running_.push_back({p, publisher(p).life, id, p, publisher(p).life, {}, false});
      enter(running_.back(), p);
      std::size_t const count = running_.size();
      std::string thrown;
      for (std::size_t i = 0; i != count;) {
         try {
            tell(i);
            ++i;
         } catch (Thrown const& error) {
            if (thrown.empty()) {
               thrown = error.what();
            }
         }
      }
      running_.pop_back();
      if (!thrown.empty()) {
         throw Thrown(thrown);
      }
   }
   bool bypass(int p, U16 id) override {
      if (!running_.empty()) {
         return false;
      }
      Registration const* only = nullptr;
      for (int at = p; at >= 0; at = publisher(at).parent) {
         for (Registration const& r : publisher(at).list) {
            if (at == p || r.scope == Scope::subtree) {
               if (only != nullptr || !r.first || publisher(at).parent >= 0) {
                  return false;
               }
               only = &r;
            }
         }
      }
      if (only != nullptr) {
         // The root's other observers may hear of the change only by asking.
         int root = p;
         for (; publisher(root).parent >= 0; root = publisher(root).parent) {
         }
         if (publisher(root).list.size() != 1) {
            return false;
         }
         gaveRoom(only->observer, p, id);
      }
      return only != nullptr;
   }
   void observerAdd(int p, int o, Scope scope, bool first) override {
      auto& list = publisher(p).list;
      list.insert(first ? list.begin() : list.end(), {++registrations_, o, scope, first});
   }
   bool observerDel(int p, int o, Scope scope) override {
      auto const at = find(publisher(p), o, scope);
      if (at == publisher(p).list.end()) {
         return false;
      }
      publisher(p).list.erase(at);
      return true;
   }
   bool hasObserver(int p, int o, Scope scope) override {
      return find(publisher(p), o, scope) != publisher(p).list.end();
   }
   bool watched(int p) override {
      if (!publisher(p).list.empty()) {
         return true;
      }
      for (int at = p; at >= 0; at = publisher(at).parent) {
         for (Registration const& r : publisher(at).list) {
            if (r.scope == Scope::subtree) {
               return true;
            }
         }
      }
      return false;
   }
   void renew(int p) override {
      publisher(p) = {};
      publisher(p).life = ++lives_;
      for (Publisher& child : publishers_) {
         if (child.parent == p) {
            child.parent = -1;
         }
      }
   }
   void parentIs(int p, int parent) override { publisher(p).parent = parent; }

   std::vector<Publisher> publishers_;
   std::vector<Publication> running_;
   int registrations_ = 0;
   int lives_ = 0;
};

/// `PUBLISHER_SEED` repeats one run.
TEST(PublisherRandom, TellsWhatTheModelTells) {
   char const* const given = std::getenv("PUBLISHER_SEED");
   unsigned const first =
         given != nullptr ? static_cast<unsigned>(std::atol(given)) : std::random_device()();
   unsigned const runs = given != nullptr ? 1 : 150;
   std::size_t tellings = 0;
   for (unsigned seed = first; seed != first + runs; ++seed) {
      SCOPED_TRACE("PUBLISHER_SEED=" + std::to_string(seed));
      Real real(seed);
      Model model(seed);
      real.run();
      model.run();
      auto const differs =
            std::mismatch(real.log.begin(), real.log.end(), model.log.begin(), model.log.end());
      ASSERT_TRUE(real.log == model.log)
            << "after " << differs.first - real.log.begin()
            << " lines: " << (differs.first != real.log.end() ? *differs.first : "end") << ", not "
            << (differs.second != model.log.end() ? *differs.second : "end");
      tellings += real.log.size();
   }
   EXPECT_GT(tellings, runs * 100u) << "the script does too little";
}

}  // namespace

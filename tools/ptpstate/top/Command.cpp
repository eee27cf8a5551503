// top
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <iostream>
#include <list>
#include <memory>

#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/top/Batch.h"
#include "tools/ptpstate/top/Preset.h"
#include "tools/ptpstate/top/Screen.h"
#include "tools/ptpstate/top/Settings.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

struct TopOptions : ReaderOptions {
   std::string path;
   std::vector<std::string> head;
   std::vector<std::string> columns;
   std::string sort;
   bool reverse = false;
   double interval = 1;
   bool batch = false;
   bool json = false;
   bool csv = false;
   std::string filter;
   U64 count = 0;
};

/// A root that is shown, or part of which is. Its mirror outlives connections.
struct TopRoot {
   OfferedRoot root;
   Sarn::Ptr<Kiv::NamedEntity> mirror;
   /// The part of it that is shown above the table: one row with these columns.
   TopTable head;
   std::vector<TopColumn> headColumns;
};

/// Notices whether anything has changed in any of several trees.
class AnyChange final : public Kiv::Observer {
public:
   AnyChange() = default;
   ~AnyChange() {
      for (Sarn::Ptr<Kiv::Entity> const& root : roots_) {
         root->observerDel(*this, Kiv::Scope::subtree);
      }
   }
   AnyChange(AnyChange const&) = delete;
   AnyChange& operator=(AnyChange const&) = delete;

   void add(Sarn::Ptr<Kiv::Entity> root) {
      root->observerAdd(*this, Kiv::Scope::subtree);
      roots_.push_back(std::move(root));
   }
   void onChange(Kiv::Change const&) override { any_ = true; }
   /// Whether there was any since the last call; true at first.
   bool taken() noexcept { return std::exchange(any_, false); }

private:
   std::vector<Sarn::Ptr<Kiv::Entity>> roots_;
   bool any_ = true;
};

/// A descriptor that is readable when one of several is.
class AnyOf {
public:
   explicit AnyOf(std::initializer_list<int> fds) : fd_(::epoll_create1(EPOLL_CLOEXEC)) {
      for (int const fd : fds) {
         epoll_event event{};
         event.events = EPOLLIN;
         ::epoll_ctl(fd_, EPOLL_CTL_ADD, fd, &event);
      }
   }
   ~AnyOf() { ::close(fd_); }
   AnyOf(AnyOf const&) = delete;
   AnyOf& operator=(AnyOf const&) = delete;
   int fd() const noexcept { return fd_; }

private:
   int fd_;
};

class Top {
public:
   explicit Top(TopOptions const& options)
         : options_(options), ascii_(!isUtf8Environment()), table_(ascii_) {}

   Exit run() {
      state_ = openState(options_, stop_.fd());
      choose();
      state_->waitComplete();
      columns();
      return options_.batch ? batch() : live();
   }

private:
   void choose();
   void columns();
   TopRoot& rootFor(OfferedRoot const& root);
   void headFor(Sarn::String const& text);
   void sample();
   Exit batch();
   Exit live();
   bool handleKeys(TopScreen& screen, TopView& view);
   std::vector<std::pair<Sarn::String, TopCell>> headCells() const;
   std::vector<Sarn::String> headItems() const;
   bool isList() const;
   void write(bool first);
   Kiv::TypeImpl const& rowType() const {
      return *destinationOf(roots_.front().mirror->kivType(), path_).type;
   }
   Sarn::String title(TopView const* view) const;

   milliseconds interval() const {
      return milliseconds(static_cast<S64>(options_.interval * 1000));
   }

   TopOptions const& options_;
   bool ascii_;
   StopSignals stop_;
   std::list<TopRoot> roots_;
   Path path_;
   Sarn::String pathText_;
   TopTable table_;
   AnyChange changes_;
   std::size_t rows_ = 0;
   std::unique_ptr<RootSource> state_;
};

TopRoot& Top::rootFor(OfferedRoot const& root) {
   for (TopRoot& known : roots_) {
      if (known.root.type == root.type && known.root.name == root.name) {
         return known;
      }
   }
   roots_.push_back({root, state_->mirror(root), TopTable(ascii_), {}});
   return roots_.back();
}

/// Adds "PATH", "PATH/s" or "PATH~" above the table; for an entity, all its attributes.
void Top::headFor(Sarn::String const& text) {
   Sarn::String plain = text;
   Sarn::String const behind = text.ends_with("/s") ? "/s" : text.ends_with("~") ? "~" : "";
   plain.resize(plain.size() - behind.size());
   Path const path = parsePath(plain, state_->roots());
   TopRoot& root = rootFor(path.root);
   Destination const to = destinationOf(root.mirror->kivType(), path);
   TopColumn column = topColumn((path.steps.empty() ? "none" : path.steps.back().name) + behind);
   column.steps = path.steps;
   if (to.type->kind != Kiv::TypeKind::entity) {
      root.headColumns.push_back(column);
      return;
   }
   for (TopColumn attribute : attributeColumns(*to.type)) {
      attribute.steps.insert(attribute.steps.begin(), path.steps.begin(), path.steps.end());
      root.headColumns.push_back(std::move(attribute));
   }
}

void Top::choose() {
   path_ = parsePath(options_.path, state_->roots());
   TopRoot const& root = rootFor(path_.root);
   pathText_ = Kiv::printable(destinationOf(root.mirror->kivType(), path_).path);
   topEntities(root.mirror, path_);  // throws if there can be no rows
   for (std::string const& head : options_.head) {
      headFor(head);
   }
   for (TopRoot& each : roots_) {
      each.head.columnsAre(each.headColumns);
      changes_.add(Sarn::Ptr<Kiv::Entity>(each.mirror.get()));
   }
}

/// The columns that the person has chosen in an earlier run; none if there are none.
std::vector<TopColumn> remembered(Kiv::TypeImpl const& type) {
   std::vector<TopColumn> columns;
   for (Sarn::String const& name :
        rememberedColumns(type.name).value_or(std::vector<Sarn::String>())) {
      try {
         columns.push_back(columnOf(type, name));
      } catch (Failure const&) {
         continue;  // another version of the model had it
      }
   }
   return columns;
}

/// A single entity is shown as a list.
bool Top::isList() const {
   Destination const to = destinationOf(roots_.front().mirror->kivType(), path_);
   return to.field == nullptr || to.keyed || to.field->kind == Kiv::MemberKind::child;
}

/// Sets the columns, by default those that matter first, and what the rows are sorted by.
void Top::columns() {
   Kiv::TypeImpl const& type = rowType();
   std::vector<TopColumn> columns;
   for (std::string const& name : options_.columns) {
      columns.push_back(columnOf(type, name));
   }
   if (columns.empty() && !options_.batch) {
      columns = remembered(type);
   }
   if (columns.empty()) {
      columns = isList() ? choiceOf(type) : firstColumns(type);
   }
   table_.columnsAre(std::move(columns));
   table_.filterIs(options_.filter);
   if (!options_.sort.empty()) {
      int at = 0;
      for (TopColumn const& column : table_.columns()) {
         if (column.name == Kiv::printable(options_.sort)) {
            table_.sortIs(at);
         }
         ++at;
      }
      if (table_.sortedBy() < 0) {
         throw Failure("--sort " + options_.sort + ": no such column; add it to --columns",
                       Exit::usage);
      }
   }
   if (options_.reverse) {
      table_.sortIs(table_.sortedBy());
   }
}

void Top::sample() {
   Clock::time_point const now = Clock::now();
   if (!changes_.taken() && table_.repeat(now)) {
      for (TopRoot& root : roots_) {
         root.head.repeat(now);
      }
      return;
   }
   auto const rows = topEntities(roots_.front().mirror, path_);
   rows_ = rows.size();
   table_.sample(rows, now);
   for (TopRoot& root : roots_) {
      root.head.sample({{root.root.name, root.mirror.get()}}, now);
   }
}

std::vector<std::pair<Sarn::String, TopCell>> Top::headCells() const {
   std::vector<std::pair<Sarn::String, TopCell>> cells;
   for (TopRoot const& root : roots_) {
      for (TopRow const& row : root.head.rows()) {
         for (std::size_t i = 0; i != row.cells.size(); ++i) {
            cells.emplace_back(root.headColumns[i].name, row.cells[i]);
         }
      }
   }
   return cells;
}

std::vector<Sarn::String> Top::headItems() const {
   std::vector<Sarn::String> items;
   for (auto const& [name, cell] : headCells()) {
      items.push_back(name + " " + cell.text);
   }
   return items;
}

/// Writes a sample to standard output.
void Top::write(bool first) {
   if (options_.json) {
      writeJsonSample(std::cout, table_, headCells());
   } else if (options_.csv) {
      writeCsvSample(std::cout, table_, first);
   } else {
      std::cout << (first ? "" : "\n");
      for (Sarn::String const& item : headItems()) {
         std::cout << item << '\n';
      }
      TopView view(table_, {});
      view.listIs(isList());
      for (Sarn::String const& line : view.text()) {
         std::cout << line << '\n';
      }
   }
   Tools::requireWritten(std::cout);
}

Sarn::String Top::title(TopView const* view) const {
   Sarn::String const trouble = state_->trouble();
   return timeText(wallNow(), TimeForm::seconds) + "  " + pathText_ + ": " + std::to_string(rows_) +
          (rows_ == 1 ? " row" : " rows") + (trouble.empty() ? "" : "  -- " + trouble) +
          (view != nullptr && view->paused() ? "  -- paused" : "");
}

Exit Top::batch() {
   for (U64 done = 0; options_.count == 0 || done != options_.count; ++done) {
      Clock::time_point const until = Clock::now() + interval();
      while (done != 0 && Clock::now() < until) {
         auto const left = std::chrono::duration_cast<milliseconds>(until - Clock::now());
         if (state_->turn(stop_.fd(), left + milliseconds(1))) {
            return Exit::ok;
         }
         if (Sarn::String const lost = state_->lostText(); !lost.empty()) {
            throw Failure(lost, Exit::connection);
         }
      }
      sample();
      write(done == 0);
   }
   return Exit::ok;
}

/// Handles keys; returns false if one ends the program.
bool Top::handleKeys(TopScreen& screen, TopView& view) {
   for (int key = screen.key(); key != -1; key = screen.key()) {
      if (!view.press(key)) {
         return false;
      }
   }
   return true;
}

Exit Top::live() {
   TopScreen screen;
   TopView view(table_, choiceOf(rowType()));
   view.listIs(isList());
   view.onColumns = [this] {
      std::vector<Sarn::String> names;
      for (TopColumn const& column : table_.columns()) {
         names.push_back(column.name);
      }
      rememberColumns(rowType().name, names);
   };
   AnyOf const input{0, stop_.fd()};
   Clock::time_point next = Clock::now();
   U64 frames = 0;
   for (;;) {
      Clock::time_point const now = Clock::now();
      if (now >= next) {
         if (options_.count != 0 && frames++ == options_.count) {
            return Exit::ok;
         }
         if (!view.paused()) {
            sample();
         }
         next = now + interval();
      }
      screen.draw(view.lines(title(&view), headItems(), screen.width(), screen.height()));
      bool pressed = false;
      while (!pressed && Clock::now() < next) {
         auto const left = std::chrono::duration_cast<milliseconds>(next - Clock::now());
         std::size_t const width = screen.width();
         std::size_t const height = screen.height();
         pressed = state_->turn(input.fd(), left + milliseconds(1));
         if (stop_.taken() || !handleKeys(screen, view)) {
            return Exit::ok;
         }
         pressed = pressed || width != screen.width() || height != screen.height();
      }
   }
}

}  // namespace

void addTop(Command const& program, Run& run) {
   auto const options = std::make_shared<TopOptions>();
   Command const command = program.command(
         "top",
         "Shows a live table of a collection of entities, one per row, or a list of the attributes "
         "of one entity. The columns are those given; else those that were chosen before with the "
         "key c; else the attributes, and of ports what matters first: portState, role, offset, "
         "delay and masters as ptpports shows them, and the rate of Sync messages. After a name, "
         "\"/s\" shows the "
         "change per second, and \"~\" the last 16 samples as a small graph. A column may "
         "also be a path below the entity: clockQuality.clockClass.\n"
         "\n"
         "Keys: arrows, page up, page down, home and end move through rows and columns; s "
         "sorts by the chosen column, and again in reverse; k sorts by the key; c chooses "
         "the columns: there, space shows or hides a value, r its rate, h its history; / shows "
         "only rows that contain a text; p pauses and resumes; ? explains the keys; q quits.\n"
         "\n"
         "Columns that were chosen with c are kept by type in $XDG_CONFIG_HOME/ptpstate/top, or in "
         "~/.config/ptpstate/top. With --batch they are not used.\n"
         "\n"
         "The rate of a counter stays right when the counter wraps; after a reset there is "
         "none until the next sample. When the connection is lost, top says so, keeps the last "
         "values, "
         "and tries again.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate top --socket /tmp/ptp ptp/config.intfConfig\n"
         "  $ ptpstate top --socket /tmp/ptp ptp/status.portDS --columns "
         "portState,peerMeanPathDelay~,syncMessageReceived/s --head "
         "ptp/status.currentDS.offsetFromMaster --head ptp/status.currentDS.offsetFromMaster~\n"
         "  $ ptpstate top --socket /tmp/ptp ptp/status.portDS --batch --count 1 --sort portState\n"
         "  $ ptpstate top --fleet nats://nats1 --switch edge-7 ptp/status.portDS");
   addReaderOptions(command, *options);
   command.option("path", options->path).placeholder("PATH").required();
   command
         .option("--head", options->head,
                 "Show this attribute above the table, optionally with /s or ~ after it; for an "
                 "entity, all its attributes; repeatable")
         .placeholder("PATH");
   command.option("--columns", options->columns, "Show these columns, in this order")
         .placeholder("NAME,...")
         .separatedBy(',');
   command.option("--sort", options->sort, "Sort by this column").placeholder("NAME");
   command.flag("--reverse", options->reverse, "Sort in reverse order");
   command.option("--interval", options->interval, "Time between samples; 1 by default")
         .placeholder("SECONDS")
         .range(0.05, 3600.0);
   command
         .option("--filter", options->filter,
                 "Show only rows whose key or a value contains this text, in any case")
         .placeholder("TEXT");
   Option const batch = command.flag("--batch", options->batch,
                                     "Write tables to standard output, without a terminal");
   Option const json =
         command.flag("--json", options->json, "With --batch: write a JSON object per sample")
               .needs(batch);
   command.flag("--csv", options->csv, "With --batch: write comma-separated values")
         .needs(batch)
         .excludes(json);
   command.option("--count", options->count, "End after this many samples")
         .placeholder("N")
         .range(U64{1}, ~U64{0});
   command.onChosen([options, &run] { run = [options] { return Top(*options).run(); }; });
}

}  // namespace Ptpstate

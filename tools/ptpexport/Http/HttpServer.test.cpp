#include "tools/ptpexport/Http/HttpServer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <list>

#include "Holt/Failure.h"
#include "tools/ptpexport/Http/Peer.test.h"

namespace Ptpexport {
namespace {

U64 testTime = 0;

constexpr U64 aSecond = 1'000'000'000;

/// So many bytes, and how many of them were rendered.
class Long final : public Body {
public:
   Long(std::size_t size, std::size_t& rendered) : left_(size), rendered_(rendered) {}
   std::size_t read(std::span<char> into) override {
      std::size_t const size = std::min(into.size(), left_);
      std::memset(into.data(), 'x', size);
      left_ -= size;
      rendered_ += size;
      return size;
   }
   bool ended() const override { return left_ == 0; }

private:
   std::size_t left_;
   std::size_t& rendered_;
};

/// What the test says, until it ends it.
class Told final : public Body {
public:
   explicit Told(Told*& self) : self_(self) { self_ = this; }
   ~Told() override { self_ = nullptr; }
   std::size_t read(std::span<char> into) override {
      if (fails) {
         throw std::runtime_error("lost");
      }
      std::size_t const size = std::min(into.size(), text.size());
      std::memcpy(into.data(), text.data(), size);
      text.erase(0, size);
      ++reads;
      return size;
   }
   bool ended() const override { return last && text.empty(); }

   std::string text;
   bool last = false;
   bool fails = false;
   int reads = 0;

private:
   Told*& self_;
};

class HttpServerTest : public testing::Test {
protected:
   HttpServerTest() {
      testTime = Holt::steadyNow();
      options.listen = {"127.0.0.1:0"};
   }
   ~HttpServerTest() override { loop.remove(*server); }

   void serve() {
      server.emplace(options);
      server->routeIs("/hello", [](Request const& request) {
         Reply reply;
         reply.text = "hello " + request.header("x-name") + "\n";
         return reply;
      });
      server->routeIs("/below/", [](Request const& request) {
         Reply reply;
         reply.text = "<" + request.rest + ">";
         return reply;
      });
      server->routeIs("/long", [this](Request const&) {
         Reply reply;
         reply.body = std::make_unique<Long>(longSize, rendered);
         return reply;
      });
      server->routeIs("/told", [this](Request const&) {
         Reply reply;
         reply.body = std::make_unique<Told>(told);
         reply.endless = true;
         return reply;
      });
      server->routeIs("/failure", [](Request const&) -> Reply { throw Holt::Failure("no\nway"); });
      server->routeIs("/error", [](Request const&) -> Reply { throw std::logic_error("broken"); });
      loop.add(*server);
   }
   std::string address() const { return server->addresses().front(); }
   std::string answer(std::string const& target, std::string const& method = "GET") {
      return Peer(loop, address()).answer(target, method);
   }
   /// The first line of an answer, and its body.
   std::string brief(std::string const& target) {
      std::string const text = answer(target);
      return text.substr(0, text.find("\r\n")) + "|" + bodyOf(text);
   }
   void pass(U64 time) {
      testTime += time;
      for (int i = 0; i != 3; ++i) {
         loop.turn(-1, std::chrono::milliseconds(1));
      }
   }
   static U64 clock() noexcept { return testTime; }
   void stopTheClock() { options.clock = &clock; }

   HttpServer::Options options;
   std::optional<HttpServer> server;
   Holt::Loop loop{&clock};
   std::size_t longSize = 5'000'000;
   std::size_t rendered = 0;
   Told* told = nullptr;
};

constexpr char text[] = "text/plain; charset=utf-8";

std::string expected(std::string const& status, std::string const& body,
                     std::string const& more = "") {
   return "HTTP/1.1 " + status + "\r\nConnection: close\r\nContent-Type: " + text +
          "\r\nX-Content-Type-Options: nosniff\r\n" + more +
          "Cache-Control: no-store\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
          body;
}

TEST_F(HttpServerTest, AnswersInTheseBytes) {
   serve();
   EXPECT_EQ(answer("/hello"), expected("200 OK", "hello \n"));
   std::string const whole = expected("200 OK", "hello \n");
   EXPECT_EQ(answer("/hello", "HEAD"), whole.substr(0, whole.size() - 7));
   EXPECT_EQ(answer("/nothing"), expected("404 Not Found", "there is nothing at /nothing\n"));
   EXPECT_EQ(answer("/failure"), expected("404 Not Found", "no\\nway\n"));
   EXPECT_EQ(answer("/error"), expected("500 Internal Server Error", "broken\n"));
}

TEST_F(HttpServerTest, OnlyReads) {
   serve();
   for (char const* const method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "get"}) {
      EXPECT_EQ(answer("/hello", method),
                expected("405 Method Not Allowed", "only GET and HEAD are allowed\n",
                         "Allow: GET, HEAD\r\n"))
            << method;
   }
   Peer body(loop, address());
   body.send("GET /hello HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1000000\r\n\r\n");
   EXPECT_TRUE(body.isOver());
   EXPECT_EQ(withoutDate(body.text()),
             expected("413 Content Too Large", "a request has no body\n"));
   Peer chunks(loop, address());
   chunks.send(
         "POST /hello HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc");
   EXPECT_TRUE(chunks.isOver());
   EXPECT_EQ(chunks.text().substr(0, 12), "HTTP/1.1 405");
}

TEST_F(HttpServerTest, OnlyAnswersForOtherNamesWhereOthersReachIt) {
   serve();
   auto const statusFor = [this](std::string const& header) {
      Peer peer(loop, address());
      peer.send("GET /hello HTTP/1.1\r\n" + header + "Connection: close\r\n\r\n");
      EXPECT_TRUE(peer.isOver());
      return peer.text().substr(0, 12);
   };
   for (char const* const own :
        {"localhost", "LOCALHOST:9979", "127.0.0.1", "127.0.0.1:9979", "10.1.2.3", "[::1]:9979"}) {
      EXPECT_EQ(statusFor("Host: " + std::string(own) + "\r\n"), "HTTP/1.1 200") << own;
   }
   for (char const* const other :
        {"example.com", "localhost.example.com:9979", "127.0.0.1.example.com", "[::1", "a"}) {
      EXPECT_EQ(statusFor("Host: " + std::string(other) + "\r\n"), "HTTP/1.1 421") << other;
   }
   loop.remove(*server);
   options.listen = {"127.0.0.1:0", "0.0.0.0:0"};
   serve();
   EXPECT_EQ(statusFor("Host: example.com\r\n"), "HTTP/1.1 200");
}

TEST_F(HttpServerTest, FindsTheLongestRouteAndNormalisesNothing) {
   serve();
   EXPECT_EQ(brief("/below"), "HTTP/1.1 200 OK|<>");
   EXPECT_EQ(brief("/below/"), "HTTP/1.1 200 OK|<>");
   EXPECT_EQ(brief("/below/a%2Fb%5B1%5D?x=1"), "HTTP/1.1 200 OK|<a/b[1]>");
   EXPECT_EQ(brief("/below/../hello"), "HTTP/1.1 200 OK|<../hello>");
   EXPECT_EQ(brief("/below/%2e%2e/%2e%2e/etc/passwd"), "HTTP/1.1 200 OK|<../../etc/passwd>");
   EXPECT_EQ(brief("/x/../hello"), "HTTP/1.1 404 Not Found|there is nothing at /x/../hello\n");
   EXPECT_EQ(brief("//hello"), "HTTP/1.1 404 Not Found|there is nothing at //hello\n");
   EXPECT_EQ(brief("/belowx"), "HTTP/1.1 404 Not Found|there is nothing at /belowx\n");
   EXPECT_EQ(brief("/%1b[31m%0a"), "HTTP/1.1 404 Not Found|there is nothing at /\\x1b[31m\\n\n");
   EXPECT_EQ(brief("/below/%00"),
             "HTTP/1.1 400 Bad Request|a percent sign is followed by two hexadecimal digits, and "
             "not by 00\n");
   EXPECT_EQ(brief("http://other/hello"), "HTTP/1.1 400 Bad Request|a path begins with a slash\n");
}

TEST_F(HttpServerTest, AnswersSeveralRequestsOnAConnection) {
   serve();
   Peer peer(loop, address());
   peer.send(
         "GET /hello HTTP/1.1\r\nHost: localhost\r\nX-Name: one\r\n\r\n"
         "HEAD /hello HTTP/1.1\r\nHost: localhost\r\n\r\n"
         "GET /hello HTTP/1.1\r\nHost: localhost\r\nx-name: two\r\n\r\n");
   EXPECT_TRUE(peer.has("hello one\n"));
   EXPECT_TRUE(peer.has("hello two\n"));
   peer.get("/below/3");
   EXPECT_TRUE(peer.has("<3>"));
   EXPECT_EQ(server->counters().accepted, 1U);
   EXPECT_EQ(server->counters().requests, 4U);
}

TEST_F(HttpServerTest, BoundsRequestLineAndHeaders) {
   serve();
   Peer line(loop, address());
   line.send("GET /" + std::string(100'000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
   EXPECT_TRUE(line.isOver());
   EXPECT_EQ(line.text().substr(0, 12), "HTTP/1.1 414");
   Peer headers(loop, address());
   headers.send("GET /hello HTTP/1.1\r\nHost: localhost\r\nX-Long: " + std::string(100'000, 'a') +
                "\r\n\r\n");
   EXPECT_TRUE(headers.isOver());
   EXPECT_EQ(headers.text().substr(0, 12), "HTTP/1.1 431");
   Peer many(loop, address());
   std::string all = "GET /hello HTTP/1.1\r\nHost: localhost\r\n";
   for (int i = 0; i != 10'000; ++i) {
      all += "X-" + std::to_string(i) + ": 1\r\n";
   }
   many.send(all + "\r\n");
   EXPECT_TRUE(many.isOver());
   EXPECT_EQ(many.text().substr(0, 12), "HTTP/1.1 431");
   EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
}

TEST_F(HttpServerTest, SurvivesWhatIsNoRequest) {
   serve();
   for (std::string const& bytes :
        {std::string("\r\n\r\n"), std::string("\0\0\0\0\r\n\r\n", 8), std::string(5000, '\xff'),
         std::string("GET\r\n\r\n"), std::string("GET /\0/hello HTTP/1.1\r\n\r\n", 26),
         std::string("GET /hello HTTP/9.9\r\n\r\n"), std::string("\x16\x03\x01\x02\x00\x01")}) {
      Peer peer(loop, address());
      peer.send(bytes);
      loop.turn(-1, std::chrono::milliseconds(1));
   }
   EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
}

TEST_F(HttpServerTest, ClosesAHalfRequestInTimeHoweverSlowlyItGoesOn) {
   stopTheClock();
   serve();
   Peer silent(loop, address());
   Peer slow(loop, address());
   std::string const request = "GET /hello HTTP/1.1\r\n";
   for (std::size_t i = 0; i != 9; ++i) {
      slow.send(request.substr(i, 1));
      pass(aSecond);
      EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
   }
   slow.take();
   EXPECT_FALSE(slow.over());
   pass(aSecond + 1);
   EXPECT_TRUE(slow.isOver());
   EXPECT_TRUE(silent.isOver());
   EXPECT_EQ(server->counters().late, 2U);
   EXPECT_TRUE(turnUntil(loop, [&] { return server->clients() == 0; }));
}

TEST_F(HttpServerTest, ClosesAnIdleConnectionLater) {
   stopTheClock();
   serve();
   Peer peer(loop, address());
   peer.get("/hello");
   EXPECT_TRUE(peer.has("hello"));
   pass(options.idle - 1);
   peer.take();
   EXPECT_FALSE(peer.over());
   pass(1);
   EXPECT_TRUE(peer.isOver());
}

TEST_F(HttpServerTest, TwoHundredSilentConnectionsKeepNobodyOut) {
   stopTheClock();
   serve();
   std::list<Peer> silent;
   for (int i = 0; i != 200; ++i) {
      silent.emplace_back(loop, address()).send(i % 2 == 0 ? "" : "GET /hel");
      ++testTime;
   }
   EXPECT_TRUE(turnUntil(loop, [&] {
      return server->counters().accepted == 200 && server->clients() == options.clients;
   }));
   EXPECT_EQ(server->counters().evicted, 200 - options.clients);
   EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
   silent.front().take();
   EXPECT_TRUE(silent.front().over());  // the oldest made room
   silent.back().take();
   EXPECT_FALSE(silent.back().over());
   silent.back().send("lo HTTP/1.1\r\nHost: localhost\r\n\r\n");
   EXPECT_TRUE(silent.back().has("hello \n"));
}

TEST_F(HttpServerTest, RefusesOneMoreWhileAllAreBeingAnswered) {
   options.clients = 3;
   serve();
   std::list<Peer> readers;
   for (int i = 0; i != 3; ++i) {
      readers.emplace_back(loop, address(), 4096).get("/long");
      EXPECT_TRUE(readers.back().has("xx"));
   }
   Peer more(loop, address());
   EXPECT_TRUE(more.isOver());
   EXPECT_EQ(more.text(),
             "HTTP/1.1 503 Service Unavailable\r\nContent-Type: text/plain; charset=utf-8\r\n"
             "Retry-After: 1\r\nConnection: close\r\nContent-Length: 17\r\n\r\ntoo many clients\n");
   readers.pop_front();
   EXPECT_TRUE(turnUntil(loop, [&] { return server->clients() == 2; }));
   EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
}

TEST_F(HttpServerTest, RendersOnlyWhatTheClientTakes) {
   longSize = 50'000'000;
   stopTheClock();
   serve();
   Peer reader(loop, address(), 4096);
   reader.get("/long");
   EXPECT_TRUE(reader.has("xx"));
   for (int i = 0; i != 200; ++i) {
      loop.turn(-1, std::chrono::milliseconds(1));
   }
   // What the kernel keeps for both ends, and a slice.
   RecordProperty("renderedAhead", static_cast<int>(rendered));
   EXPECT_LT(rendered, 500'000U);
   std::size_t const before = rendered;
   for (U64 i = 0; i != options.answer / aSecond - 1; ++i) {  // a byte a second
      reader.take(1);
      pass(aSecond);
      EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
   }
   EXPECT_LE(rendered - before, 100'000U);
   EXPECT_EQ(server->clients(), 1U);
   pass(aSecond + 1);
   EXPECT_TRUE(turnUntil(loop, [&] { return server->clients() == 0; }));
   EXPECT_TRUE(reader.isOver());
   EXPECT_FALSE(reader.text().ends_with("0\r\n\r\n"));
}

TEST_F(HttpServerTest, SendsALongBodyWhole) {
   serve();
   std::string const body = bodyOf(answer("/long"));
   EXPECT_EQ(body.size(), longSize);
   EXPECT_EQ(body.find_first_not_of('x'), std::string::npos);
   Peer old(loop, address());
   old.send("GET /long HTTP/1.0\r\n\r\n");
   EXPECT_TRUE(old.isOver());
   EXPECT_EQ(bodyOf(old.text()).size(), longSize);
   EXPECT_EQ(answer("/long", "HEAD").find("x\r\n"), std::string::npos);
}

TEST_F(HttpServerTest, WaitsForABodyUntilItIsWoken) {
   serve();
   Peer peer(loop, address());
   peer.get("/told");
   EXPECT_TRUE(peer.has("\r\n\r\n"));
   for (int i = 0; i != 20; ++i) {
      loop.turn(-1, std::chrono::milliseconds(1));
   }
   EXPECT_EQ(told->reads, 1);
   for (char const* const word : {"one", "two", "three"}) {
      told->text = word;
      told->wake();
      EXPECT_TRUE(peer.has(word));
   }
   told->text = "four";
   told->last = true;
   told->wake();
   EXPECT_TRUE(peer.has("4\r\nfour\r\n0\r\n\r\n"));
   EXPECT_EQ(told, nullptr);
   peer.forget();
   peer.get("/hello");
   EXPECT_TRUE(peer.has("hello"));
}

TEST_F(HttpServerTest, CutsOffABodyThatFails) {
   serve();
   Peer peer(loop, address());
   peer.get("/told");
   EXPECT_TRUE(peer.has("\r\n\r\n"));
   told->fails = true;
   told->wake();
   EXPECT_TRUE(peer.isOver());
   EXPECT_EQ(told, nullptr);
   EXPECT_FALSE(peer.text().ends_with("0\r\n\r\n"));
   EXPECT_EQ(brief("/hello"), "HTTP/1.1 200 OK|hello \n");
}

TEST_F(HttpServerTest, AnEndlessAnswerEndsWhenItsReaderStops) {
   stopTheClock();
   serve();
   Peer quiet(loop, address());
   quiet.get("/told");
   EXPECT_TRUE(quiet.has("\r\n\r\n"));
   pass(10 * options.stall);  // nothing to read is no fault of the reader
   quiet.take();
   EXPECT_FALSE(quiet.over());
   told->text = std::string(50'000'000, 'y');
   told->wake();
   for (int last = 0; told->reads != last;) {  // until the kernel takes no more
      last = told->reads;
      for (int i = 0; i != 50; ++i) {
         loop.turn(-1, std::chrono::milliseconds(1));
      }
   }
   pass(options.stall - aSecond);
   EXPECT_NE(told, nullptr);
   pass(aSecond + 1);
   EXPECT_TRUE(turnUntil(loop, [&] { return told == nullptr; }));
   EXPECT_EQ(server->counters().late, 1U);
}

TEST_F(HttpServerTest, EndsWhileClientsAreInEveryState) {
   serve();
   std::list<Peer> peers;
   for (char const* const target : {"/told", "/long", "/hello"}) {
      peers.emplace_back(loop, address(), 4096).get(target);
      EXPECT_TRUE(peers.back().has("\r\n\r\n"));
   }
   peers.emplace_back(loop, address()).send("GET /he");
   loop.remove(*server);
   server.reset();
   EXPECT_EQ(told, nullptr);
   serve();  // for the end of the test
}

TEST(Listening, ListensWhereItIsTold) {
   Listening const four("127.0.0.1:0");
   EXPECT_TRUE(four.address().starts_with("127.0.0.1:")) << four.address();
   EXPECT_NE(four.address(), "127.0.0.1:0");
   Listening const six("[::1]:0");
   EXPECT_TRUE(six.address().starts_with("[::1]:")) << six.address();
   try {
      Listening const again(four.address());
      FAIL();
   } catch (Holt::Failure const& failure) {
      EXPECT_EQ(failure.what(), four.address() + ": cannot listen there: Address already in use");
      EXPECT_EQ(failure.status(), Holt::Exit::connection);
   }
}

TEST(Listening, RefusesWhatIsNoAddress) {
   for (std::string const wrong :
        {"", ":", "80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "::1:80",
         "[::1]", "[127.0.0.1]:80", "localhost:80", "127.0.0.1:http", "127.0.0.1: 80", "[]:80"}) {
      try {
         Listening const listening(wrong);
         ADD_FAILURE() << wrong;
      } catch (Holt::Failure const& failure) {
         EXPECT_EQ(failure.what(),
                   "--listen " + wrong +
                         ": expected ADDRESS:PORT, such as 127.0.0.1:9979 or [::1]:9979");
         EXPECT_EQ(failure.status(), Holt::Exit::usage);
      }
   }
}

}  // namespace
}  // namespace Ptpexport

// The web view as a map view uses it, with real pages in real processes.
#include <arpa/inet.h>
#include <csignal>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/gtk/Screen.hpp"
#include "tests/sim/SimVenue.hpp"

namespace wayloom::gtk {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Delegate : platform::WebViewDelegate {
  void webViewDidFinishLoad() override { note("finished"); }
  void webViewDidFailLoadWithError(const platform::Error& error) override { note("failed: " + error.description); }
  void webViewDidLoseItsPage(const platform::Error& error) override { note("lost: " + error.description); }
  bool webViewShouldStartLoadWithRequest(const std::string& url) override {
    if (!url.starts_with("quembly:")) return true;
    urls.push_back(url);
    return false;
  }
  void note(std::string word) {
    words.push_back(std::move(word));
    if (andThen) andThen();
  }

  std::vector<std::string> words;
  std::vector<std::string> urls;
  std::function<void()> andThen;
};

struct WebViewTest : testing::Test {
  WebViewTest() : container(factory.makeContainerView()), web(factory.makeWebView()), window(widgetOf(*container)) {
    web->setDelegate(&delegate);
    container->setLayoutCallback([this](double width, double height) {
      if (web) web->setFrame({0, 0, width, height});
    });
    container->add(*web);
  }

  std::string page(const std::string& name, const std::string& html) {
    folder.write(name, "<!DOCTYPE html><meta charset=utf-8>" + html);
    return "file://" + folder.path() + "/" + name;
  }
  void load(const std::string& address, platform::Duration timeout = 5s) {
    web->load({.address = address, .timeout = timeout});
  }
  std::vector<std::string> wait(double seconds = 20.0) {
    waitUntil([&] { return !delegate.words.empty(); }, seconds);
    return std::exchange(delegate.words, {});
  }
  std::string result(const std::string& script) { return web->evaluateScript(script).value_or("(nothing)"); }

  sim::TestFolder folder;
  Delegate delegate;
  GtkWidgetFactory factory{{.openSettingsPage = {}, .scriptTimeout = 1s, .drawTimeout = 5s}};
  std::unique_ptr<platform::ContainerView> container;
  std::unique_ptr<platform::WebView> web;
  Window window;
};

TEST_F(WebViewTest, TellsHowALoadEnds) {
  load(page("a b#.html", "<title>first</title>"));  // not a URL: a "#" begins a fragment
  EXPECT_THAT(wait(), ElementsAre(StartsWith("failed: ")));
  page("a b?.html", "<title>plain path</title>");
  load(folder.path() + "/a b?.html");
  EXPECT_THAT(wait(), ElementsAre("finished"));
  EXPECT_EQ(result("document.title"), "plain path");

  const auto good = page("good.html", "<title>good</title>");
  load(folder.path() + "/missing.html");
  EXPECT_THAT(wait(), ElementsAre(StartsWith("failed: ")));
  load(good + "?%41=\"<b>&x=a b#\u20ac");
  EXPECT_THAT(wait(), ElementsAre("finished"));
  EXPECT_EQ(result("location.hash"), "#escaped");
  EXPECT_EQ(result("decodeURIComponent(location.search)"), "?%41=\"<b>&x=a b#\u20ac");
  load(page("busy.html", "<script>const end = Date.now() + 900; while (Date.now() < end);</script>"), 300ms);
  EXPECT_THAT(wait(), ElementsAre("finished")) << "it has arrived in time, and takes time to be drawn";

  ASSERT_EQ(::mkfifo((folder.path() + "/never.js").c_str(), 0600), 0);
  const auto endless = page("endless.html", "<script src=never.js></script>");
  load(endless, 400ms);
  EXPECT_THAT(wait(), ElementsAre("failed: The page took too long to load"));
  load(endless);
  runFor(0.2);
  load(good);  // takes the other's place
  EXPECT_THAT(wait(), ElementsAre("finished"));
  load("http://127.0.0.1:1/", 300ms);  // no page may go there
  EXPECT_THAT(wait(), ElementsAre(StartsWith("failed: ")));
  runFor(0.3);
  EXPECT_THAT(delegate.words, IsEmpty());
  web->setDelegate(nullptr);
  load(good);
  runFor(0.5);
}

TEST_F(WebViewTest, ScriptsRunInOrderAndGiveTexts) {
  load(page("p.html", "<script>var seen = [];</script>"));
  ASSERT_THAT(wait(), ElementsAre("finished"));
  for (int i = 0; i < 50; ++i) web->runScript("seen.push(" + std::to_string(i) + ")");
  EXPECT_THAT(result("seen.join()"), StartsWith("0,1,2,3,4,5,6,7,8,9,10,"));
  EXPECT_EQ(result("seen.length"), "50");
  EXPECT_EQ(result("undefined"), "");
  EXPECT_EQ(result("null"), "");
  EXPECT_EQ(result("1.5 + '\u20ac'"), "1.5\u20ac");
  EXPECT_EQ(result("nonsense("), "(nothing)");
  EXPECT_EQ(result("throw 1"), "(nothing)");
  EXPECT_EQ(result("'x'.repeat(1 << 20)").size(), 1U << 20U);
  web->runScript("throw 1");
  EXPECT_EQ(result("typeof " + std::string(1U << 20U, ' ') + "seen"), "object");
}

TEST_F(WebViewTest, RefusesWhatThePageSaysToTheProgram) {
  load(page("p.html", "<title>stays</title><iframe></iframe>"));
  ASSERT_THAT(wait(), ElementsAre("finished"));
  for (const char* url : {"quembly:tap:1,2", "quembly:%22a b\"<c>:\u20ac", "quembly:"}) {
    web->runScript("location.href = '" + std::string(url) + "'");
    ASSERT_TRUE(waitUntil([&] { return !delegate.urls.empty(); }));
    EXPECT_THAT(std::exchange(delegate.urls, {}), ElementsAre(StartsWith(std::string(url).substr(0, 14))));
  }
  web->runScript("location.href = 'quembly:' + '7'.repeat(1 << 20)");
  ASSERT_TRUE(waitUntil([&] { return !delegate.urls.empty(); }));
  EXPECT_EQ(delegate.urls[0].size(), (1U << 20U) + 8);
  EXPECT_EQ(result("document.title"), "stays");
  EXPECT_THAT(delegate.words, IsEmpty());
}

TEST_F(WebViewTest, APageWhoseProcessEndsIsLostAndAnotherCanBeLoaded) {
  const auto address = page("p.html", "<title>alive</title>");
  load(address);
  ASSERT_THAT(wait(), ElementsAre("finished"));
  const auto processes = descendants("WebKitWebProcess");
  ASSERT_FALSE(processes.empty());
  for (const int process : processes) ::kill(process, SIGKILL);
  EXPECT_THAT(wait(), ElementsAre("lost: The page's process ended unexpectedly"));
  web->runScript("1");
  EXPECT_EQ(result("1"), "(nothing)");
  load(address);
  EXPECT_THAT(wait(), ElementsAre("finished"));
  EXPECT_EQ(result("document.title"), "alive");
}

TEST_F(WebViewTest, AnEndlessScriptCostsThePageButNotTheProgram) {
  const auto address = page("p.html", "<title>alive</title>");
  load(address);
  ASSERT_THAT(wait(), ElementsAre("finished"));
  EXPECT_EQ(result("for (;;);"), "(nothing)");
  EXPECT_THAT(wait(), ElementsAre("lost: The page did not get through a script in time"));
  load(address);
  ASSERT_THAT(wait(), ElementsAre("finished"));
  web->runScript("for (;;);");
  for (int i = 0; i < 10; ++i) web->runScript("1");
  EXPECT_THAT(wait(), ElementsAre("lost: The page did not get through a script in time"));
  load(page("loop.html", "<script>for (;;);</script>"), 300ms);
  EXPECT_THAT(wait(), ElementsAre("failed: The page took too long to load"));
  load(address);
  EXPECT_THAT(wait(), ElementsAre("finished"));
}

TEST_F(WebViewTest, PagesReachNoNetworkNoOtherFileAndNoPerson) {
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&address), size), 0);
  ::listen(server, 5);
  ::getsockname(server, reinterpret_cast<sockaddr*>(&address), &size);
  const auto url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";

  folder.write("secret.txt", "secret");
  load(page("p.html",
            "<title>here</title><script>var read = 'no';"
            "for (const u of ['secret.txt', '" +
                url +
                "']) fetch(u).then(() => read = 'yes', () => {});"
                "new Image().src = '" +
                url + "'; navigator.sendBeacon('" + url +
                "', 'x');"
                "alert(1); var opened = open('" +
                url +
                "');"
                "try { localStorage.x = 1; var stored = 'yes' } catch (e) { stored = 'no' }</script>"
                "<iframe src='" +
                url + "'></iframe><a id=a href='data:application/zip,x' download></a>"));
  ASSERT_THAT(wait(), ElementsAre("finished"));
  web->runScript("document.getElementById('a').click()");
  web->runScript("location.href = '" + url + "'");
  runFor(0.7);
  EXPECT_EQ(::accept(server, nullptr, nullptr), -1);
  ::close(server);
  EXPECT_EQ(result("[document.title, read, opened, stored].join()"), "here,no,,no");
  EXPECT_THAT(delegate.words, IsEmpty());
}

TEST_F(WebViewTest, CanBeDestroyedAtAnyTime) {
  const auto address = page("p.html", "x");
  const auto anew = [&] {
    delegate.words.clear();
    web = factory.makeWebView();
    web->setDelegate(&delegate);
    container->add(*web);
  };
  anew();
  load(address);
  web.reset();  // while it loads
  runFor(0.3);
  EXPECT_THAT(delegate.words, IsEmpty());

  delegate.andThen = [&] { web.reset(); };
  anew();
  load(address);
  EXPECT_THAT(wait(), ElementsAre("finished"));
  anew();
  load(folder.path() + "/missing.html");
  EXPECT_THAT(wait(), ElementsAre(StartsWith("failed")));
  anew();
  web->runScript("for (;;);");
  EXPECT_THAT(wait(), ElementsAre(StartsWith("lost")));

  anew();
  g_timeout_add(
      100,
      [](gpointer data) -> gboolean {
        static_cast<WebViewTest*>(data)->web.reset();
        return G_SOURCE_REMOVE;
      },
      this);
  EXPECT_FALSE(web->evaluateScript("for (;;);"));
  runFor(0.3);
  EXPECT_EQ(web, nullptr);
}

// A hidden page has its size already, and shows nothing.
TEST_F(WebViewTest, AHiddenPageIsReadyToBeShown) {
  web->setHidden(true);
  load(page("p.html", "x"));
  ASSERT_THAT(wait(), ElementsAre("finished"));
  EXPECT_EQ(result("innerWidth + 'x' + innerHeight"), "800x600");
  EXPECT_EQ(gtk_widget_get_opacity(widgetOf(*web)), 0.0);
  EXPECT_FALSE(gtk_widget_get_can_target(widgetOf(*web)));
  web->setHidden(false);
  web->setAlpha(0.0);
  web->animateAlpha(1.0, 100ms);
  EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_opacity(widgetOf(*web)) == 1.0; }));
}

}  // namespace
}  // namespace wayloom::gtk

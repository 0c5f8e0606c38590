// A host in ten lines: prints a position whenever the library has one, and keeps its maps up to date.
//
//   host BUNDLE DOCUMENTS
//
// BUNDLE is the application's folder of resources (examples/venue/bundle, say), DOCUMENTS where it may write.
#include <cstdio>
#include <memory>

#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixPlatform.hpp"

struct Dot : wayloom::TWLManagerDelegate {
  void locationManagerDidUpdateMapLocation(wayloom::TWLManager&, const wayloom::TWLMapLocationPtr& here) override {
    std::printf("%s %.1f %.1f\n", here->mapId().c_str(), here->pixelCoords().x, here->pixelCoords().y);
  }
};

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  auto loop = std::make_shared<wayloom::posix::MainLoop>();
  auto platform = wayloom::posix::makePlatform(
      {.mainBundle = argv[1], .resourceBundle = MAP_PAGE, .documents = argv[2], .loop = loop});
  Dot dot;
  wayloom::TWLManager manager(*platform, &dot);
  manager.updateMaps();
  loop->run();
}

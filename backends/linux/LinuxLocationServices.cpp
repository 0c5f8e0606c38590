#include "wayloom/linux/LinuxLocationServices.hpp"

#include <fmt/format.h>
#include <optional>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

#include "backends/linux/BluezCentral.hpp"
#include "backends/linux/TroubleLog.hpp"

namespace wayloom::linux_ {
namespace {

using platform::CLAuthorizationStatus;

constexpr const char* kBluetoothDomain = "Bluetooth";
constexpr const char* kLocationDomain = "Location";
// Registering a kit afresh takes all regions away for a moment; the scan goes on meanwhile.
constexpr platform::Duration kBeforeRest = std::chrono::seconds(2);

// Location managers may outlive the services, and look at the clock.
const posix::PosixMonotonicClock& monotonicClock() {
  static const posix::PosixMonotonicClock clock;
  return clock;
}

template <class Status>
std::string sentence(const Status& status) {
  std::string text(description(status.condition));
  if (!status.detail.empty()) text += " (" + status.detail + ")";
  return text + ".";
}

}  // namespace

// What the scanner tells, handed on. Shared with the calls under way, in which a delegate may destroy the services.
class LinuxLocationServices::Radio : public ScannerListener,
                                     public FixListener,
                                     public std::enable_shared_from_this<Radio> {
 public:
  Radio(LinuxLocationServices& services, std::shared_ptr<platform::TaskScheduler> tasks,
        std::shared_ptr<platform::LogSink> log)
      : services_(&services),
        tasks_(std::move(tasks)),
        radioLog_(log),
        fixLog_(std::move(log)),
        central_(std::make_shared<BluezCentral>(tasks_)) {}

  void start(BluezOptions bluez, GeoClueOptions geoClue) {
    scanner_.emplace(*tasks_, std::move(bluez), *this);
    fixes_.emplace(*tasks_, std::move(geoClue), *this);
  }

  void end() {
    services_ = nullptr;
    rest_.reset();
    scanner_.reset();
    fixes_.reset();
  }

  void fixed(const platform::CLLocation& fix) override {
    const auto keepAlive = shared_from_this();
    services_->receiveFix(fix);
  }

  void fixesChanged(const FixStatus& status) override {
    const auto keepAlive = shared_from_this();
    if (status.condition == FixCondition::fixing) fixLog_.end("There are geographic fixes again.");
    if (!isTrouble(status.condition)) return;
    begin(fixLog_, status);
    services_->deliverFailure({kLocationDomain, static_cast<int>(status.condition), sentence(status)});
  }

  void wantFixes(bool wanted) { fixes_->setWanted(wanted); }
  FixStatus fixStatus() const { return fixes_->status(); }

  void heard(std::span<const BeaconReport> reports) override {
    const auto keepAlive = shared_from_this();
    if (const auto observer = reportObserver_) observer(reports);
    for (const auto& report : reports)
      if (services_ != nullptr) services_->receive(report.frame, report.receivedAt);
  }

  void radioChanged(const RadioStatus& status) override {
    const auto keepAlive = shared_from_this();
    const bool isNews = std::exchange(condition_, status.condition) != status.condition;
    central_->setState(centralState(status.condition));
    services_->setScanning(status.listening);
    if (isNews && isTrouble(status.condition)) begin(radioLog_, status);
    if (!isTrouble(status.condition) && status.condition != RadioCondition::starting)
      radioLog_.end("Bluetooth works again.");
    if (const auto observer = radioObserver_) observer(status);
    if (services_ != nullptr) authorise(status.condition);
    if (isNews && services_ != nullptr) report(status);
  }

  void setLog(const std::shared_ptr<platform::LogSink>& log) {
    radioLog_.setSink(log);
    fixLog_.setSink(log);
  }

  void scanAlways() {
    scansAlways_ = true;
    want(true);
  }

  // The scan outlasts a short lack of regions.
  void want(bool wanted) {
    if (wanted || scansAlways_) {
      rest_.reset();
      return scanner_->setWanted(true);
    }
    rest_ = tasks_->startTimer(tasks_->mainQueue(), kBeforeRest, std::nullopt, [this] { scanner_->setWanted(false); });
  }

  const std::shared_ptr<BluezCentral>& central() const { return central_; }
  RadioStatus status() const { return scanner_->status(); }
  void setRadioObserver(std::function<void(const RadioStatus&)> observer) { radioObserver_ = std::move(observer); }
  void setReportObserver(std::function<void(std::span<const BeaconReport>)> observer) {
    reportObserver_ = std::move(observer);
  }

 private:
  template <class Status>
  static void begin(TroubleLog& log, const Status& status) {
    log.begin(static_cast<int>(status.condition), fmt::format("{} {}", sentence(status), advice(status.condition)),
              monotonicClock().now());
  }

  void authorise(RadioCondition condition) {
    if (condition == RadioCondition::refused)
      services_->setAuthorizationStatus(CLAuthorizationStatus::denied);
    else if (condition == RadioCondition::scanning || condition == RadioCondition::resting)
      services_->setAuthorizationStatus(CLAuthorizationStatus::authorizedAlways);
  }

  // That nothing is heard may just be so; it is no failure.
  void report(const RadioStatus& status) {
    if (!isTrouble(status.condition) || status.condition == RadioCondition::silent) return;
    services_->deliverFailure({kBluetoothDomain, static_cast<int>(status.condition), sentence(status)});
  }

  LinuxLocationServices* services_;  // null when they have gone
  std::shared_ptr<platform::TaskScheduler> tasks_;
  TroubleLog radioLog_;
  TroubleLog fixLog_;
  std::shared_ptr<BluezCentral> central_;
  std::optional<RadioCondition> condition_;
  bool scansAlways_ = false;
  std::function<void(const RadioStatus&)> radioObserver_;
  std::function<void(std::span<const BeaconReport>)> reportObserver_;
  std::unique_ptr<platform::Timer> rest_;
  std::optional<BluezScanner> scanner_;
  std::optional<GeoClueFixes> fixes_;
};

LinuxLocationServices::LinuxLocationServices(const std::shared_ptr<platform::TaskScheduler>& tasks,
                                             std::shared_ptr<platform::LogSink> log, BluezOptions bluez,
                                             GeoClueOptions geoClue)
    : RangerLocationServices(*tasks, monotonicClock()), radio_(std::make_shared<Radio>(*this, tasks, std::move(log))) {
  setScanning(false);
  setFixRequestObserver([radio = radio_.get()](const auto& request) { radio->wantFixes(request.has_value()); });
  setBeaconRequestObserver([radio = radio_.get()](bool wanted) { radio->want(wanted); });
  radio_->start(std::move(bluez), std::move(geoClue));
}

LinuxLocationServices::~LinuxLocationServices() {
  setBeaconRequestObserver({});
  setFixRequestObserver({});
  radio_->end();
}

std::shared_ptr<platform::CBCentralManager> LinuxLocationServices::bluetooth() const { return radio_->central(); }

void LinuxLocationServices::setLog(std::shared_ptr<platform::LogSink> log) { radio_->setLog(log); }

void LinuxLocationServices::scanAlways() { radio_->scanAlways(); }

RadioStatus LinuxLocationServices::radioStatus() const { return radio_->status(); }

FixStatus LinuxLocationServices::fixStatus() const { return radio_->fixStatus(); }

void LinuxLocationServices::setRadioObserver(std::function<void(const RadioStatus&)> observer) {
  radio_->setRadioObserver(std::move(observer));
}

void LinuxLocationServices::setReportObserver(std::function<void(std::span<const BeaconReport>)> observer) {
  radio_->setReportObserver(std::move(observer));
}

}  // namespace wayloom::linux_

#include "receiver/facades/Video.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "receiver/CarouselMounts.h"

namespace receiver {
namespace {

constexpr const char* mainChannel = "main";
/// A client that opens more is not playing but flooding.
constexpr std::size_t mostPlayers = 16;
constexpr ipcutil::Rectangle_t plane{0, 0, Display::width, Display::height};

/// Without a sound card, or a server that stands for one, the sound is played to nobody.
bool hasSoundDevice() {
  std::error_code ignored;
  return std::filesystem::exists("/dev/snd", ignored) || std::getenv("PULSE_SERVER") != nullptr;
}

}  // namespace

Video::Video(StreamPlayer& streamPlayer, const ServiceInformation& information, Worker& worker,
             GraphicsListener& graphicsListener, Display* display)
    : streamPlayer_(streamPlayer),
      information_(information),
      worker_(worker),
      graphicsListener_(graphicsListener),
      display_(display) {
  if (display_ == nullptr) return;
  // Below the players, however late its pictures come.
  display_->show(mainChannel, main_.bounds);
  follower_ = std::thread([this] { follow(); });
  pthread_setname_np(follower_.native_handle(), "main-video");
}

Video::~Video() {
  {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    stopped_.notify_all();
  }
  if (follower_.joinable()) follower_.join();
  videoPropertyAction();
  if (mainPlayer_) streamPlayer_.remove(*mainPlayer_);
  graphicsListener_.set(nullptr);
}

/// Plays whichever service is the current one: a live stream has none before its first PAT.
void Video::follow() {
  std::unique_lock lock(mutex_);
  while (!isStopped_) {
    const int service = information_.currentService();
    if (service != mainService_ && service != -1) playMain(service);
    // Somebody who zaps does not notice so short a time.
    stopped_.wait_for(lock, std::chrono::milliseconds(100), [this] { return isStopped_; });
  }
}

void Video::playMain(int service) {
  if (mainPlayer_) streamPlayer_.remove(*mainPlayer_);
  mainPlayer_.reset();
  mainService_ = service;
  MediaSource source;
  source.program = service;
  auto player = std::make_unique<MediaPlayer>(source, mainChannel, hasSoundDevice(), [] {});
  if (!player->open() || !player->play()) return;
  mainPlayer_ = std::move(player);
  applyMain();
  streamPlayer_.add(*mainPlayer_);
}

/// Sets the player to what the main video is set to.
void Video::applyMain() {
  if (!mainPlayer_) return;
  mainPlayer_->setFrozen(main_.isFrozen);
  mainPlayer_->setMute(main_.isMute);
  mainPlayer_->setSound(main_.sound);
  mainPlayer_->setBalance(main_.balance);
  mainPlayer_->setBass(main_.bass);
  mainPlayer_->setTreble(main_.treble);
  const std::vector<Component> audio = components(true, mainService_);
  const auto selected = std::ranges::find(audio, main_.language, &Component::language);
  mainPlayer_->selectAudio(selected == audio.end() ? 0
                                                   : static_cast<int>(selected - audio.begin()));
}

void Video::changeMain(const std::function<void(Main&)>& change) {
  const std::lock_guard lock(mutex_);
  change(main_);
  applyMain();
  if (display_ == nullptr) return;
  display_->move(mainChannel, main_.isShown ? main_.bounds : ipcutil::Rectangle_t{});
}

Video::Opened* Video::find(int player) {
  const auto found = players_.find(player);
  return found == players_.end() ? nullptr : &found->second;
}

std::vector<Component> Video::components(bool isAudio, int service) const {
  for (ProgramMap& map : information_.programMaps()) {
    if (map.program != service) continue;
    std::erase_if(map.components, [&](const Component& component) {
      return isAudio ? !component.isAudio() : !component.isVideo();
    });
    return map.components;
  }
  return {};
}

std::vector<Component> Video::components(bool isAudio) const {
  return components(isAudio, information_.currentService());
}

const Component* Video::selectedAudio(const std::vector<Component>& audio) {
  const std::lock_guard lock(mutex_);
  const auto selected = std::ranges::find(audio, main_.language, &Component::language);
  if (selected != audio.end()) return &*selected;
  return audio.empty() ? nullptr : &audio.front();
}

void Video::setVideoBounds(int x, int y, int width, int height) {
  changeMain([&](Main& main) { main.bounds = {x, y, width, height}; });
}

void Video::getMainVideoBounds(int& x, int& y, int& width, int& height) {
  const std::lock_guard lock(mutex_);
  x = main_.bounds.x;
  y = main_.bounds.y;
  width = main_.bounds.width;
  height = main_.bounds.height;
}

int Video::open(std::string locator, int& player) {
  if (!gst::prepare() || players_.size() >= mostPlayers) return 0;
  MediaSource source;
  if (const auto place = CarouselLocator::parse(locator)) {
    const std::vector<ProgramMap> maps = information_.programMaps();
    source.program = place->place.service;
    if (std::ranges::find(maps, source.program, &ProgramMap::program) == maps.end()) return 0;
  } else {
    source = MediaSource::file(locator);
    if (source.uri.empty()) return 0;
  }
  const int number = next_++;
  Opened opened;
  opened.listener = std::make_shared<Listener>();
  opened.bounds = plane;
  opened.isLive = source.uri.empty();
  opened.channel = "player" + std::to_string(number);
  opened.player = std::make_unique<MediaPlayer>(
      source, display_ != nullptr ? opened.channel : std::string(),
      display_ != nullptr && hasSoundDevice(),
      [&worker = worker_, listener = opened.listener, number] {
        worker.post([listener, number] {
          listener->notify([number](auto& who) { who.endOfMedia(number); });
        });
      });
  if (!opened.player->open()) return 0;
  if (display_ != nullptr) display_->show(opened.channel, opened.bounds);
  if (opened.isLive) streamPlayer_.add(*opened.player);
  players_.emplace(number, std::move(opened));
  player = number;
  return 1;
}

void Video::closeOpened(Opened& opened) {
  opened.listener->set(nullptr);
  if (opened.isLive) streamPlayer_.remove(*opened.player);
  opened.player.reset();
  if (display_ != nullptr) display_->hide(opened.channel);
}

void Video::close(int player) {
  Opened* const opened = find(player);
  if (opened == nullptr) return;
  closeOpened(*opened);
  players_.erase(player);
}

int Video::getDuration(int player) {
  const Opened* const opened = find(player);
  return opened == nullptr ? -1 : opened->player->duration();
}

int Video::getCurrentTime(int player) {
  const Opened* const opened = find(player);
  return opened == nullptr ? -1 : opened->player->time();
}

int Video::setCurrentTime(int player, int first, int second) {
  const Opened* const opened = find(player);
  return opened == nullptr ? -1 : opened->player->seek(first, second == 1);
}

void Video::addMediaListener(int player, middlewarefacade::MediaListener* listener) {
  if (const Opened* const opened = find(player)) opened->listener->set(listener);
}

int Video::play(int player) {
  const Opened* const opened = find(player);
  return opened != nullptr && opened->player->play() ? 1 : 0;
}

void Video::stop(int player) {
  if (const Opened* const opened = find(player)) opened->player->stop();
}

int Video::setMediaBounds(int player, int x, int y, int width, int height) {
  Opened* const opened = find(player);
  if (opened == nullptr || width < 0 || height < 0) return -1;
  opened->bounds = {x, y, width, height};
  if (display_ != nullptr) display_->move(opened->channel, opened->bounds);
  return 0;
}

void Video::getMediaBounds(int player, int& x, int& y, int& width, int& height) {
  const Opened* const opened = find(player);
  if (opened == nullptr) return;
  x = opened->bounds.x;
  y = opened->bounds.y;
  width = opened->bounds.width;
  height = opened->bounds.height;
}

std::string Video::getVideoLanguageA() {
  const std::vector<Component> audio = components(true);
  const Component* const selected = selectedAudio(audio);
  return selected == nullptr ? std::string() : selected->language;
}

std::list<std::string> Video::getVideoLanguages() {
  std::list<std::string> languages;
  for (const Component& component : components(true)) {
    if (!component.language.empty()) languages.push_back(component.language);
  }
  return languages;
}

std::string Video::getVideoLanguageB() {
  const std::list<std::string> languages = getVideoLanguages();
  return languages.empty() ? std::string() : languages.front();
}

void Video::selectVideoLanguage(std::string language) {
  const std::vector<Component> audio = components(true);
  if (std::ranges::find(audio, language, &Component::language) == audio.end()) return;
  changeMain([&](Main& main) { main.language = std::move(language); });
}

void Video::setVideoFreeze(bool freeze) {
  changeMain([freeze](Main& main) { main.isFrozen = freeze; });
}

void Video::setMediaFreeze(int player, bool freeze) {
  if (const Opened* const opened = find(player)) opened->player->setFrozen(freeze);
}

void Video::setVideoOption(bool option) {
  changeMain([option](Main& main) { main.isShown = option; });
}

int Video::getVideoProperty9() { return Display::width; }

int Video::getVideoProperty10() { return Display::height; }

int Video::getVideoProperty11() {
  const std::vector<Component> pictures = components(false);
  return pictures.empty() ? -1 : pictures.front().pid;
}

int Video::getVideoProperty12() {
  const std::vector<Component> pictures = components(false);
  return pictures.empty() ? -1 : pictures.front().streamType;
}

int Video::getVideoProperty13() {
  const std::vector<Component> audio = components(true);
  const Component* const selected = selectedAudio(audio);
  return selected == nullptr ? -1 : selected->pid;
}

int Video::getVideoProperty14() {
  const std::vector<Component> audio = components(true);
  const Component* const selected = selectedAudio(audio);
  return selected == nullptr ? -1 : selected->streamType;
}

int Video::getVideoProperty15() {
  const std::lock_guard lock(mutex_);
  return main_.isMute ? 1 : 0;
}

int Video::getVideoProperty16() {
  const std::lock_guard lock(mutex_);
  return main_.isFrozen ? 1 : 0;
}

/// The client has gone, or begins anew: its players go, and the main video is as it was.
void Video::videoPropertyAction() {
  for (auto& [number, opened] : players_) closeOpened(opened);
  players_.clear();
  changeMain([](Main& main) { main = {}; });
  if (display_ != nullptr) display_->setRegion({});
}

void Video::setVideoBalanceLevel(double level) {
  changeMain([level](Main& main) { main.balance = level; });
}

void Video::setMediaBalanceLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setBalance(level);
}

void Video::setVideoSoundLevel(double level) {
  changeMain([level](Main& main) { main.sound = level; });
}

void Video::setMediaSoundLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setSound(level);
}

void Video::setVideoMute(bool mute) {
  changeMain([mute](Main& main) { main.isMute = mute; });
}

void Video::setMediaMute(int player, bool mute) {
  if (const Opened* const opened = find(player)) opened->player->setMute(mute);
}

void Video::setVideoBassLevel(double level) {
  changeMain([level](Main& main) { main.bass = level; });
}

void Video::setMediaBassLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setBass(level);
}

void Video::setVideoTrebleLevel(double level) {
  changeMain([level](Main& main) { main.treble = level; });
}

void Video::setMediaTrebleLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setTreble(level);
}

void Video::addGraphicsSettingsListener(middlewarefacade::GraphicsSettingsListener* listener) {
  graphicsListener_.set(listener);
}

void Video::removeGraphicsSettingsListener(middlewarefacade::GraphicsSettingsListener*) {
  graphicsListener_.set(nullptr);
}

void Video::getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) {
  *first = plane;
  *second = plane;
}

void Video::updateGraphicsRegion(int x, int y, int width, int height) {
  if (display_ != nullptr) display_->setRegion({x, y, width, height});
}

}  // namespace receiver

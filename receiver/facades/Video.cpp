#include "receiver/facades/Video.h"

#include <algorithm>
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
  if (display_ != nullptr) startMain();
}

Video::~Video() {
  videoPropertyAction();
  if (mainPlayer_) streamPlayer_.remove(*mainPlayer_);
  graphicsListener_.set(nullptr);
}

void Video::startMain() {
  MediaSource source;
  source.program = information_.currentService();
  mainPlayer_ = std::make_unique<MediaPlayer>(source, mainChannel, hasSoundDevice(), [] {});
  if (!mainPlayer_->open() || !mainPlayer_->play()) {
    mainPlayer_.reset();
    return;
  }
  streamPlayer_.add(*mainPlayer_);
  display_->show(mainChannel, main_.bounds);
}

void Video::withMain(const std::function<void(MediaPlayer&)>& call) {
  if (mainPlayer_) call(*mainPlayer_);
}

Video::Opened* Video::find(int player) {
  const auto found = players_.find(player);
  return found == players_.end() ? nullptr : &found->second;
}

std::vector<Component> Video::components(bool isAudio) const {
  for (ProgramMap& map : information_.programMaps()) {
    if (map.program != information_.currentService()) continue;
    std::erase_if(map.components, [&](const Component& component) {
      return isAudio ? !component.isAudio() : !component.isVideo();
    });
    return map.components;
  }
  return {};
}

const Component* Video::selectedAudio(const std::vector<Component>& audio) const {
  const auto selected = std::ranges::find(audio, main_.language, &Component::language);
  if (selected != audio.end()) return &*selected;
  return audio.empty() ? nullptr : &audio.front();
}

void Video::setVideoBounds(int x, int y, int width, int height) {
  main_.bounds = {x, y, width, height};
  if (display_ != nullptr && main_.isShown) display_->move(mainChannel, main_.bounds);
}

void Video::getMainVideoBounds(int& x, int& y, int& width, int& height) {
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
  const auto selected = std::ranges::find(audio, language, &Component::language);
  if (selected == audio.end()) return;
  main_.language = std::move(language);
  withMain(
      [&](MediaPlayer& player) { player.selectAudio(static_cast<int>(selected - audio.begin())); });
}

void Video::setVideoFreeze(bool freeze) {
  main_.isFrozen = freeze;
  withMain([freeze](MediaPlayer& player) { player.setFrozen(freeze); });
}

void Video::setMediaFreeze(int player, bool freeze) {
  if (const Opened* const opened = find(player)) opened->player->setFrozen(freeze);
}

void Video::setVideoOption(bool option) {
  main_.isShown = option;
  if (display_ != nullptr) {
    display_->move(mainChannel, option ? main_.bounds : ipcutil::Rectangle_t{});
  }
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

int Video::getVideoProperty15() { return main_.isMute ? 1 : 0; }

int Video::getVideoProperty16() { return main_.isFrozen ? 1 : 0; }

/// The client has gone, or begins anew: its players go, and the main video is as it was.
void Video::videoPropertyAction() {
  for (auto& [number, opened] : players_) closeOpened(opened);
  players_.clear();
  main_ = {};
  withMain([](MediaPlayer& player) {
    player.setFrozen(false);
    player.setMute(false);
    player.setSound(1);
    player.setBalance(0);
    player.setBass(0);
    player.setTreble(0);
    player.selectAudio(0);
  });
  if (display_ != nullptr) {
    display_->move(mainChannel, main_.bounds);
    display_->setRegion({});
  }
}

void Video::setVideoBalanceLevel(double level) {
  withMain([level](MediaPlayer& player) { player.setBalance(level); });
}

void Video::setMediaBalanceLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setBalance(level);
}

void Video::setVideoSoundLevel(double level) {
  withMain([level](MediaPlayer& player) { player.setSound(level); });
}

void Video::setMediaSoundLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setSound(level);
}

void Video::setVideoMute(bool mute) {
  main_.isMute = mute;
  withMain([mute](MediaPlayer& player) { player.setMute(mute); });
}

void Video::setMediaMute(int player, bool mute) {
  if (const Opened* const opened = find(player)) opened->player->setMute(mute);
}

void Video::setVideoBassLevel(double level) {
  withMain([level](MediaPlayer& player) { player.setBass(level); });
}

void Video::setMediaBassLevel(int player, double level) {
  if (const Opened* const opened = find(player)) opened->player->setBass(level);
}

void Video::setVideoTrebleLevel(double level) {
  withMain([level](MediaPlayer& player) { player.setTreble(level); });
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

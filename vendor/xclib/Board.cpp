#include "Board.h"

#include <utility>

#include "xcliball.h"

namespace grabber {

Board::Board(std::unique_ptr<SlotClaim> slotClaim, std::shared_ptr<VirtualGrabber> grabberToOpen,
             const std::shared_ptr<FaultText>& faultText)
    : claim(std::move(slotClaim)),
      hardware(std::move(grabberToOpen)),
      frameCapture(std::make_shared<Capture>(hardware->detector(), faultText)),
      triggerLine(std::make_shared<TriggerLine>(hardware->detector())),
      serialPort(std::make_shared<SerialPort>(hardware->detector())) {
    hardware->setUser(faultText);
}

Board::~Board() {
    hardware->setUser(nullptr);
    triggerLine->release();
    frameCapture->stop();
    frameCapture->closeAllEvents();
}

bool Board::hasFormat() const {
    const platform::MutexLock lock(setupMutex);
    return format.has_value();
}

int Board::load(const void* root) {
    const platform::MutexLock lock(setupMutex);
    if (frameCapture->isLive()) return PXERBUSY;
    const std::optional<VideoFormat> loaded = recognizeFormat(root);
    if (!loaded) return PXERFORMAT;
    format = loaded;
    triggerLine->select(*loaded);
    frameCapture->arrange({formatWidth, formatHeight}, hardware->memoryBytes());
    return 0;
}

int Board::setResolution(FrameSize size) {
    constexpr int most = 65535;
    if (size.width < 1 || size.width > most || size.width % 2 != 0 || size.height < 1 || size.height > most)
        return PXERBADPARAM;
    const platform::MutexLock lock(setupMutex);
    const std::uint64_t pool = hardware->memoryBytes();
    if (FrameMemory::fitting(size, pool) == 0) return PXERMEMORY;
    frameCapture->arrange(size, pool);
    return 0;
}

void Board::beginEscape() {
    const platform::MutexLock lock(setupMutex);
    escape = 0;
}

bool Board::isEscaping() const {
    const platform::MutexLock lock(setupMutex);
    return escape.has_value();
}

void Board::noteLoad(int result) {
    const platform::MutexLock lock(setupMutex);
    if (escape) escape = result;
}

int Board::endEscape() {
    const platform::MutexLock lock(setupMutex);
    return std::exchange(escape, std::nullopt).value_or(PXERBADPARAM);
}

}  // namespace grabber

#include <chrono>
#include <cstring>

#include "platform/Clock.h"
#include "soak/Application.h"

/// Frames, buffers, runs and pulses of an application.

namespace soak {
namespace {

using std::chrono::milliseconds;

constexpr int unhurriedMs = 100;
/// On Camera Link a frame that one kind of wait got counts for the other for so long.
constexpr milliseconds sharedFrame{60};

}  // namespace

int Application::frameMs() const {
    const simulator::SimulatedDetector& hardware = *station.hardware;
    return static_cast<int>(hardware.exposureWindowMs() + hardware.readoutTimeMs()) + unhurriedMs;
}

/// A frame that is on its way may have begun under another exposure time than the one after it.
void Application::keepFrameTime() {
    if (staleFrames || disturbance.inForce() || model.runsFree()) pendingMs = std::max(pendingMs, frameMs());
}

void Application::letFramesPass() {
    platform::sleepFor(milliseconds(frameMs() + pendingMs));
    pendingMs = 0;
    keepFrameTime();
}

void Application::snap() {
    const bool badBuffer = random.percent(5);
    if (!sizeKnown()) {
        expect(0, "Snap", [&] { detector->Snap(0, random.between(0, 2000)); });
        pendingMs = std::max(pendingMs, frameMs());
        staleFrames = signalUnknown = true;
        fields.reset();
        captured.reset();
        return;
    }
    const int windowMs = static_cast<int>(station.hardware->exposureWindowMs());
    const bool hasty = windowMs > 20 && !staleFrames && random.percent(8);
    if (hasty) return snapInto(randomBuffer(), windowMs / 2, DerrAcquisition);
    const int refusal = station.isGigE() ? DerrResources : DerrAcquisition;
    snapInto(badBuffer ? places() + random.below(3) : randomBuffer(), frameMs(), badBuffer ? refusal : 0);
    if (staleFrames && random.percent(50)) closeBoard();
}

/// Camera Link: consumes the signal of a frame that no wait has consumed. A snap would take it for its own.
void Application::takeSignal() {
    if (station.isGigE() || (!signalled && !signalUnknown)) return;
    waitImage();
    signalled = signalUnknown = false;
}

/// Camera Link: the snap returns for the signal that it finds, and its own frame comes later.
void Application::snapTakesSignal() {
    const platform::Time before = platform::now();
    expect(0, "Snap that finds a signal", [&] { detector->Snap(0, frameMs()); });
    if (platform::now() - before >= milliseconds(unhurriedMs)) report.violation("the snap did not take the signal");
    signalUnknown = true;
    pendingMs = frameMs();
    fields.reset();
    captured.reset();
}

void Application::snapInto(int buffer, int timeoutMs, int code) {
    letFramesPass();
    const bool surelySignalled = !station.isGigE() && signalled && !signalUnknown && !disturbance.inForce();
    if (surelySignalled && code == 0 && random.percent(50)) snapTakesSignal(), letFramesPass();
    takeSignal();
    const std::uint64_t before = station.hardware->ledger().exposed;
    const bool inside = buffer < places();
    const bool returned = expect(code, "Snap(" + std::to_string(buffer) + ", " + std::to_string(timeoutMs) + ")",
                                 [&] { detector->Snap(buffer, timeoutMs); });
    pendingMs = frameMs();
    if (!returned) {
        staleFrames = station.isGigE();
        if (!station.isGigE()) signalUnknown = true;
        if (!station.isGigE() && inside) {
            fields.reset();  // the grabber goes on capturing
            captured.reset();
        }
        return;
    }
    if (fields) ++*fields;
    captured = buffer;
    signalled = station.isGigE();  // on Camera Link the snap has consumed it
    signalUnknown = disturbance.inForce();
    expectCounts();
    if (!staleFrames) expectPattern(buffer, before + 1);
}

void Application::expectCounts() {
    int found = 0;
    if (expect(0, "GetFieldCount()", [&] { found = detector->GetFieldCount(); }) && fields)
        expectValue("the field count", found, *fields);
    if (expect(0, "GetCapturedBuffer()", [&] { found = detector->GetCapturedBuffer(); }) && captured)
        expectValue("the captured buffer", found, *captured);
}

/// The buffer holds a frame that the detector has exposed since `firstNumber`, each pixel where it belongs.
void Application::expectPattern(int buffer, std::uint64_t firstNumber) {
    const int width = model.width();
    const int height = model.height();
    std::vector<std::uint16_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const std::size_t bytes = pixels.size() * 2;
    const std::string what = "ReadBuffer(" + std::to_string(buffer) + ")";
    if (random.percent(50)) {
        if (!expect(0, what, [&] { detector->ReadBuffer(buffer, reinterpret_cast<unsigned char*>(pixels.data())); }))
            return;
    } else {
        QorImage image;
        if (!expect(0, what + " into an image", [&] { detector->ReadBuffer(buffer, image, 0); })) return;
        expectValue("the image's width", image.GetImageXdim(), width);
        expectValue("the image's height", image.GetImageYdim(), height);
        if (!report.episodeIsClean()) return;
        std::memcpy(pixels.data(), image.GetDataPointerToPlane(0), bytes);
    }
    if (disturbance.inForce()) return;
    for (std::uint64_t number = station.hardware->ledger().exposed; number >= firstNumber; --number)
        if (pixels.front() == simulator::patternPixel(number, 1, 0, 0) &&
            pixels ==
                simulator::patternFrame(number, width, height, model.profile.sensorsAcross, model.profile.sensorsDown))
            return;
    report.violation("buffer " + std::to_string(buffer) + " doesn't hold a frame of " + std::to_string(width) + " x " +
                     std::to_string(height) + " from number " + std::to_string(firstNumber) + " on");
}

void Application::waitImage() {
    const int timeoutMs = random.between(0, 50);
    const Call wait = [&] { detector->WaitImage(timeoutMs); };
    const std::string what = "WaitImage(" + std::to_string(timeoutMs) + ")";
    const bool known = station.isGigE() ? !staleFrames : !signalUnknown;
    // On Camera Link a wait shares the frame of a snap that has only just returned.
    if (!station.isGigE()) platform::sleepFor(sharedFrame);
    if (known && !disturbance.inForce()) {
        expect(signalled ? 0 : DerrAcquisition, what, wait);
    } else {
        const Outcome outcome = report.call(what, wait);
        if (!outcome.returned() && outcome.code != DerrAcquisition) judge(DerrAcquisition, what, outcome);
    }
    signalled = false;
    platform::sleepFor(sharedFrame);
}

void Application::useBuffers() {
    if (!sizeKnown()) return;
    const int buffer = randomBuffer();
    const int bytes = model.width() * model.height() * 2;
    std::vector<unsigned char> written(static_cast<std::size_t>(bytes), static_cast<unsigned char>(random.below(256)));
    std::vector<unsigned char> found(written.size(), 1);
    if (random.percent(50)) {
        written.assign(written.size(), 0);
        expect(0, "ClearCameraBuffer", [&] { detector->ClearCameraBuffer(buffer); });
    } else {
        expect(0, "WriteBuffer", [&] { detector->WriteBuffer(buffer, written.data(), bytes); });
    }
    expect(0, "ReadBuffer", [&] { detector->ReadBuffer(buffer, found.data()); });
    if (found != written) report.violation("a buffer doesn't hold what was written to it");
    const int outside = random.percent(50) ? -1 : ring();
    expect(DerrBadRequest, "ClearCameraBuffer outside the ring", [&] { detector->ClearCameraBuffer(outside); });
    expect(DerrBadRequest, "WriteBuffer of another size",
           [&] { detector->WriteBuffer(buffer, written.data(), bytes - 2); });
    expect(DerrResources, "WriteBuffer outside the ring",
           [&] { detector->WriteBuffer(outside, written.data(), bytes); });
    expect(station.isGigE() ? DerrResources : DerrTransport, "ReadBuffer outside the ring",
           [&] { detector->ReadBuffer(outside < 0 ? outside : places(), found.data()); });
}

void Application::trigger() {
    expect(0, "SoftwareTrigger()", [&] { detector->SoftwareTrigger(); });
    pendingMs = std::max(pendingMs, frameMs());
    if (station.isGigE()) return;
    signalUnknown = true;
    fields.reset();  // after a snap that failed the grabber may still be waiting for this frame
    captured.reset();
}

void Application::runPulses() {
    const bool refused = random.percent(10);
    const int hertz = refused ? 600 : random.between(5, 100);
    letFramesPass();
    pulsesPrepared = true;
    expect(refused ? DerrBadRequest : 0, "EnablePulseGenerator(" + std::to_string(hertz) + ")",
           [&] { detector->EnablePulseGenerator(static_cast<float>(hertz)); });
    const bool known = sizeKnown();
    if (known && !refused && !model.runsFree() && !staleFrames && random.percent(20)) snapInto(0, 100, DerrAcquisition);
    if (!refused) {
        expect(0, "ToggleGenerator(true)", [&] { detector->ToggleGenerator(true); });
        if (known) snapInto(randomBuffer(), frameMs() + 2000 / hertz, 0);
        expect(0, "ToggleGenerator(false)", [&] { detector->ToggleGenerator(false); });
    }
    if (random.percent(20)) return closeBoard();
    if (expect(0, "DisablePulseGenerator()", [&] { detector->DisablePulseGenerator(); })) pulsesPrepared = false;
    if (!station.isGigE()) fields.reset();
}

/// On Camera Link the grabber does a run alone, so that one thread is enough for it.
void Application::runLive() {
    if (station.isGigE() || !sizeKnown()) return;
    letFramesPass();
    platform::sleepFor(sharedFrame);
    const bool startsSignalled = signalled && !signalUnknown && random.percent(50);
    if (!startsSignalled) takeSignal();
    const int start = random.below(std::min(ring(), 5));
    const int stop = random.between(start, std::min(ring(), 5) - 1);
    const int frames = random.between(1, 7);
    const bool limited = random.percent(50);
    expect(DerrBadRequest, "GoLiveSeq backwards", [&] { detector->GoLiveSeq(1, 0, 1); });
    expect(DerrTransport, "GoLiveSeq outside the ring", [&] { detector->GoLiveSeq(0, places(), 1); });
    if (!expect(0, "GoLiveSeq(" + std::to_string(start) + ", " + std::to_string(stop) + ")",
                [&] { detector->GoLiveSeq(start, stop, limited ? frames : 0); }))
        return;
    expect(DerrBadRequest, "GoLiveSeq while live", [&] { detector->GoLiveSeq(start, stop, 1); });
    if (startsSignalled) expect(0, "WaitImage(0) of a signal from before", [&] { detector->WaitImage(0); });
    const bool leavesLast = !model.runsFree() && random.percent(40);
    for (int frame = 0; frame < frames; ++frame) {
        if (!model.runsFree()) expect(0, "SoftwareTrigger()", [&] { detector->SoftwareTrigger(); });
        if (leavesLast && frame == frames - 1)
            platform::sleepFor(milliseconds(frameMs()));
        else
            expect(0, "WaitImage of frame " + std::to_string(frame), [&] { detector->WaitImage(frameMs()); });
    }
    signalled = leavesLast;
    signalUnknown = disturbance.inForce();
    bool live = false;
    expect(0, "IsLive()", [&] { live = detector->IsLive(); });
    if (live == limited) report.violation(live ? "a limited run goes on" : "a run has ended by itself");
    if (random.percent(20)) return closeBoard();
    expect(0, "GoUnLive()", [&] { detector->GoUnLive(); });
    if (fields) *fields += frames;
    captured = start + (frames - 1) % (stop - start + 1);
    expectCounts();
    expectPattern(*captured, station.hardware->ledger().exposed);
    pendingMs = frameMs();
    platform::sleepFor(sharedFrame);
    if (leavesLast && random.percent(60)) return random.percent(50) ? runLive() : snap();
}

}  // namespace soak

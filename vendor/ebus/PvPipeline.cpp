#include "PvPipeline.h"

#include "FrameQueue.h"
#include "StreamChannel.h"
#include "timeouts.h"

PvPipeline::PvPipeline(PvStream* from)
    : stream(from != nullptr ? from->channel : std::make_shared<ebus::StreamChannel>()),
      queue(std::make_shared<ebus::FrameQueue>()) {}

PvPipeline::~PvPipeline() {
    std::uint64_t dropped = 0;
    queue->stop(dropped);
    stream->detach(queue.get());
    stream->reportDropped(dropped);
}

void PvPipeline::SetBufferSize(std::uint32_t bytes) {
    queue->setBufferSize(bytes);
}

PvResult PvPipeline::SetBufferCount(std::uint32_t count) {
    if (const PvResult result = stream->permit("SetBufferCount"); result.IsFailure()) return result;
    return queue->setBufferCount(count);
}

PvResult PvPipeline::Start() {
    if (const PvResult result = stream->permit("PipelineStart"); result.IsFailure()) return result;
    if (const PvResult result = stream->attach(queue); result.IsFailure()) return result;
    const PvResult result = queue->start();
    if (!queue->isStarted()) stream->detach(queue.get());
    return result;
}

bool PvPipeline::IsStarted() const {
    return queue->isStarted();
}

PvResult PvPipeline::Stop() {
    if (const PvResult result = stream->permit("PipelineStop"); result.IsFailure()) return result;
    std::uint64_t dropped = 0;
    const PvResult result = queue->stop(dropped);
    stream->detach(queue.get());
    stream->reportDropped(dropped);
    return result;
}

PvResult PvPipeline::RetrieveNextBuffer(PvBuffer** buffer, std::uint32_t timeoutMs, PvResult* operationResult) {
    if (buffer == nullptr || operationResult == nullptr)
        return PvResult(PvResult::InvalidParameter, "no place for the buffer or its result");
    *buffer = nullptr;
    // Frames that came in before the device went away are still handed over.
    if (queue->isEmpty())
        if (const PvResult result = stream->status(); result.IsFailure()) return result;
    return queue->retrieve(*buffer, *operationResult, ebus::deadlineAfter(timeoutMs));
}

PvResult PvPipeline::ReleaseBuffer(PvBuffer* buffer) {
    if (const PvResult result = stream->permit("ReleaseBuffer"); result.IsFailure()) return result;
    return queue->release(buffer);
}

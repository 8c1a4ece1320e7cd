#include <qrapi/QuorinDetector.h>

#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

/// What one thread found out. Each has a record and a detector of its own, so nothing is shared.
struct Result {
    int frames = 0;
    int pixels = 0;  ///< of each frame
    std::string failure;
};

/// An exception must not leave a thread: it becomes part of the result.
void takeFrames(QuorinDetector& detector, int count, Result& result) {
    try {
        detector.OpenBoard();
        detector.SetExposureTime(50.0F);  // ms
        for (int buffer = 0; buffer < count; ++buffer) {
            detector.Snap(buffer, 5000);
            QorImage image;
            detector.ReadBuffer(buffer, image, 0);
            result.pixels = image.GetImageXdim() * image.GetImageYdim();
            ++result.frames;
        }
        detector.CloseBoard();
    } catch (const std::exception& failure) {
        result.failure = failure.what();
    }
}

int main() {
    constexpr int frames = 5;
    QuorinDetector wide(TransportGE, 0, "sim:6112-kestrane");
    QuorinDetector tall(TransportCL, 2, "");  // the frame grabber of unit 2
    Result ofWide;
    Result ofTall;
    std::thread first(takeFrames, std::ref(wide), frames, std::ref(ofWide));
    std::thread second(takeFrames, std::ref(tall), frames, std::ref(ofTall));
    first.join();
    second.join();

    int status = 0;
    for (const Result* result : {&ofWide, &ofTall}) {
        if (!result->failure.empty()) {
            std::cerr << "error: " << result->failure << "\n";
            status = 1;
        }
        std::cout << result->frames << " frames of " << result->pixels << " pixels"
                  << (result == &ofWide ? ", " : "\n");
    }
    return status;
}

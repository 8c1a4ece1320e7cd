#include <qrapi/QuorinDetector.h>

#include <cstdint>
#include <exception>
#include <iostream>
#include <numeric>

int main() {
    try {
        QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
        detector.OpenBoard();
        detector.SetExposureTime(100.0F);  // ms
        detector.Snap(0, 5000);            // one frame into buffer 0, within 5 s
        QorImage image;
        detector.ReadBuffer(0, image, 0);  // into plane 0, built to fit
        detector.CloseBoard();

        const int pixels = image.GetImageXdim() * image.GetImageYdim();
        const auto* first = static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0));
        std::cout << image.GetImageXdim() << " x " << image.GetImageYdim() << " pixels, mean "
                  << std::accumulate(first, first + pixels, 0.0) / pixels << "\n";
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return 1;
    }
}

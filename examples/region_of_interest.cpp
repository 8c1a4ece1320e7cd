#include <qrapi/QuorinDetector.h>

#include <cstdint>
#include <exception>
#include <iostream>
#include <vector>

// The detector reads out only the rows of a region, so its frames are smaller and may follow each other faster.

int main() {
    try {
        QuorinDetector detector(TransportGE, 0, "sim:6112-kestrane");
        detector.OpenBoard();
        if (detector.QueryROI() != 1) {
            std::cout << "this detector has no region of interest\n";
            return 0;
        }
        const float wholeMs = detector.GetMinimumExposureTime();

        int width = 0;
        int height = 0;
        detector.GetMaximumROISize(width, height);
        detector.SetROIArea(width, 128);  // the full width, 128 rows, centred
        detector.SetROIEnabled(true);     // now it takes effect
        detector.SetExposureTime(0.0F);   // as short as the region allows

        // The size of a frame follows the region, so memory is sized behind it.
        std::vector<std::uint16_t> frame(static_cast<std::size_t>(detector.GetBufferXdim()) *
                                         static_cast<std::size_t>(detector.GetBufferYdim()));
        detector.Snap(0, 5000);
        detector.ReadBuffer(0, reinterpret_cast<unsigned char*>(frame.data()));

        int row = 0;
        int column = 0;
        detector.GetROIArea(width, height, row, column);
        const bool faster = detector.GetMinimumExposureTime() < wholeMs;
        std::cout << frame.size() << " pixels: " << detector.GetBufferXdim() << " x " << detector.GetBufferYdim()
                  << ", from row " << row << " on, with " << (faster ? "shorter" : "no shorter") << " exposures\n";

        detector.SetROIEnabled(false);  // it would stay in the detector
        detector.CloseBoard();
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return 1;
    }
}

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "enumerations.h"
#include "export.h"

/// The acquisition parameters of an image.
struct QorImageParameters {
    bins binning = BinUnknown;      ///< `BinUnknown` while no parameters were set
    int model = -1;                 ///< negative while no parameters were set
    bool sliceInterlacing = false;  ///< the detector was read with slice interlacing
    int frameCount = 0;             ///< frames that went into the image; 1 for a plain read
    bool averaged = false;          ///< the frames were averaged
    int sourceColumn = 0;           ///< source region in unbinned pixels, as it was passed to `Build` or set
    int sourceRow = 0;              ///< as `sourceColumn`
    int sourceWidth = 0;            ///< as `sourceColumn`
    int sourceHeight = 0;           ///< as `sourceColumn`
};

/// The processing marks that an image carries.
struct QorImageMarks {
    bool floodCorrected = false;   ///< flood correction was applied
    bool darkCorrected = false;    ///< dark correction was applied
    bool defectCorrected = false;  ///< defect correction was applied
    bool averaged = false;         ///< made of several frames
    bool fixed = false;            ///< defined by the application
    bool linearized = false;       ///< linearization was applied
    bool sorted = false;           ///< pixels are in the order of the panel
};

/// A stack of equally sized 16-bit planes, with the parameters of their acquisition.
///
/// A plane is width x height pixels, row after row, without padding. Adding planes keeps the addresses of the others.
/// An image has no lock: one thread at a time. Sizes below 1, and models or binning modes without a geometry, fail with
/// code 4, missing memory with code 12.
class QRAPI_EXPORT QorImage {
public:
    QorImage();
    QorImage(const QorImage& other);                 ///< copies all planes
    QorImage(QorImage&& other) noexcept;             ///< leaves the other without planes
    QorImage& operator=(const QorImage& other);      ///< copies all planes
    QorImage& operator=(QorImage&& other) noexcept;  ///< swaps the two images
    ~QorImage();

    /// True until the image has been built.
    bool IsEmpty() const;

    /// Replaces the planes by `depth` planes of zeros.
    /// @param width   pixels per row
    /// @param height  rows
    /// @param depth   number of planes
    /// @param type    `PixelU16`; any other fails with code 4
    void Build(int width, int height, int depth, pType type);

    /// Replaces the planes by `depth` planes of zeros, of the size that a detector of this model delivers: the panel,
    /// or with `roiEnabled` the region, divided by the binning factors.
    /// @param model            detector model, such as 6112
    /// @param binning          a mode from 1 to 11
    /// @param depth            number of planes
    /// @param type             `PixelU16`; any other fails with code 4
    /// @param electronics      2 for Kestrane electronics, otherwise 1
    /// @param sliceInterlacing the detector reads out with slice interlacing
    /// @param roiEnabled       the region determines the size; its four numbers become parameters in any case
    /// @param roiStartColumn   in unbinned pixels
    /// @param roiStartRow      in unbinned pixels
    /// @param roiWidth         in unbinned pixels
    /// @param roiHeight        in unbinned pixels
    void Build(int model, bins binning, int depth, pType type, int electronics, bool sliceInterlacing, bool roiEnabled,
               int roiStartColumn, int roiStartRow, int roiWidth, int roiHeight);

    /// Appends one plane of zeros. Fails with code 4 on an empty image.
    void AddImage();

    /// First pixel of plane `plane`, counted from 0; null if there is no such plane.
    void* GetDataPointerToPlane(int plane) const;

    int GetImageXdim() const;         ///< width in pixels
    int GetImageYdim() const;         ///< height in pixels
    int GetImageDepth() const;        ///< number of planes
    pType GetImagePixelType() const;  ///< as passed to `Build`
    int GetImageModel() const;        ///< negative while no parameters were set
    bins GetImageBinning() const;     ///< `BinUnknown` while no parameters were set

    /// Sets the parameters; `QorImageParameters` describes them.
    void SetImageParameters(bins binning, int model, bool sliceInterlacing, int frameCount, bool averaged,
                            int sourceColumn, int sourceRow, int sourceWidth, int sourceHeight);
    const QorImageParameters& GetImageParameters() const;  ///< as set by `SetImageParameters` or `Build`

    void SetFloodCorrectedFlag(bool value);   ///< mark `floodCorrected`
    void SetDarkCorrectedFlag(bool value);    ///< mark `darkCorrected`
    void SetDefectCorrectedFlag(bool value);  ///< mark `defectCorrected`
    void SetAveragedFlag(bool value);         ///< mark `averaged`
    void SetFixedFlag(bool value);            ///< mark `fixed`
    void SetLinearizedFlag(bool value);       ///< mark `linearized`
    /// Mark `sorted`: the pixels are in the order of the panel, as from one sensor without slice interlacing.
    void SetSortedFlag(bool value);
    const QorImageMarks& GetImageMarks() const;  ///< all marks

private:
    std::unique_ptr<std::uint16_t[]> newPlane(const char* function) const;

    int width = 0;
    int height = 0;
    pType pixelType = PixelU16;
    std::vector<std::unique_ptr<std::uint16_t[]>> planes;
    QorImageParameters parameters;
    QorImageMarks marks;
};

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "enumerations.h"
#include "export.h"

/// What was known of the acquisition when an image was filled.
struct QorImageParameters {
    bins binning = BinUnknown;      ///< `BinUnknown` while no parameters were set
    int model = -1;                 ///< negative while no parameters were set
    bool sliceInterlacing = false;  ///< the detector was read with slice interlacing
    int frameCount = 0;             ///< frames that went into the image; 1 for a plain read
    bool averaged = false;          ///< the frames were averaged
    int sourceColumn = 0;           ///< source region, in pixels; 0 by a plain read
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
    bool fixed = false;            ///< what it says is the application's to decide
    bool linearized = false;       ///< linearization was applied
    bool sorted = false;           ///< pixels stand in the order of the panel
};

/// A stack of equally sized 16-bit planes, with the parameters of their acquisition.
///
/// A plane is width times height pixels, row after row, without padding; a plane's address stays the same
/// while further planes are added. An image is not locked: one thread at a time.
/// Sizes below 1 and models or binning modes without a geometry fail with code 4, memory with code 12.
class QRAPI_EXPORT QorImage {
public:
    QorImage();
    QorImage(const QorImage& other);                 ///< copies all planes
    QorImage(QorImage&& other) noexcept;             ///< leaves the other without planes
    QorImage& operator=(const QorImage& other);      ///< copies all planes
    QorImage& operator=(QorImage&& other) noexcept;  ///< leaves the other without planes
    ~QorImage();

    /// True until the image has been built.
    bool IsEmpty() const;

    /// Allocates `depth` planes of zeros; what the image held before is gone.
    void Build(int width, int height, int depth, pType type);

    /// Allocates `depth` planes of the size that a detector of this model delivers: the panel, or with
    /// `roiEnabled` the region of `roiWidth` by `roiHeight` pixels, each divided by the binning factors.
    /// @param electronics  2 for Kestrane electronics, otherwise 1
    void Build(int model, bins binning, int depth, pType type, int electronics, bool sliceInterlacing, bool roiEnabled,
               int roiStartColumn, int roiStartRow, int roiWidth, int roiHeight);

    /// Appends one plane of zeros. Fails with code 4 on an empty image.
    void AddImage();

    /// Start of plane `plane`, counted from 0; null for a plane that does not exist.
    void* GetDataPointerToPlane(int plane) const;

    int GetImageXdim() const;         ///< width in pixels
    int GetImageYdim() const;         ///< height in pixels
    int GetImageDepth() const;        ///< number of planes
    pType GetImagePixelType() const;  ///< as `Build` was given it
    int GetImageModel() const;        ///< negative while no parameters were set
    bins GetImageBinning() const;     ///< `BinUnknown` while no parameters were set

    /// Records what was known of the acquisition; the fields are told at `QorImageParameters`.
    void SetImageParameters(bins binning, int model, bool sliceInterlacing, int frameCount, bool averaged,
                            int sourceColumn, int sourceRow, int sourceWidth, int sourceHeight);
    const QorImageParameters& GetImageParameters() const;  ///< what `SetImageParameters` recorded

    void SetFloodCorrectedFlag(bool value);   ///< mark `floodCorrected`
    void SetDarkCorrectedFlag(bool value);    ///< mark `darkCorrected`
    void SetDefectCorrectedFlag(bool value);  ///< mark `defectCorrected`
    void SetAveragedFlag(bool value);         ///< mark `averaged`
    void SetFixedFlag(bool value);            ///< mark `fixed`
    void SetLinearizedFlag(bool value);       ///< mark `linearized`
    /// Marks the pixels as standing in the order of the panel: one sensor, read without slice interlacing.
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

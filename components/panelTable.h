#pragma once

#include <array>

/// The geometry of a detector model, unbinned and without a region. Shared by the library and the simulated detector.
struct PanelModel {
    int model;          ///< as register 124 reports it
    int sensorWidth;    ///< columns of one sensor
    int sensorHeight;   ///< rows of one sensor
    int sensorsAcross;  ///< sensors side by side
    int sensorsDown;    ///< sensors one above the other

    constexpr int sensorCount() const { return sensorsAcross * sensorsDown; }  ///< sensors of the panel
    constexpr int imageWidth() const { return sensorWidth * sensorsAcross; }   ///< columns of the panel
    constexpr int imageHeight() const { return sensorHeight * sensorsDown; }   ///< rows of the panel
};

inline constexpr std::array<PanelModel, 6> panelTable{{
    {5101, 1536, 864, 1, 1},
    {5309, 1536, 1944, 1, 1},
    {6112, 1536, 864, 2, 1},
    {6213, 1536, 1944, 2, 1},
    {7127, 1536, 1944, 2, 2},
    {8131, 1024, 1536, 3, 2},
}};

/// The row of `model`, or null for a model without a geometry.
constexpr const PanelModel* findPanel(int model) {
    for (const PanelModel& row : panelTable)
        if (row.model == model) return &row;
    return nullptr;
}

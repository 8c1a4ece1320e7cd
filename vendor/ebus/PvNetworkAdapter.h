#pragma once

#include "PvInterface.h"

/// A network adapter of this host.
class QRAPI_EXPORT PvNetworkAdapter : public PvInterface {
public:
    PvNetworkAdapter(const PvString& name, std::vector<std::unique_ptr<PvDeviceInfo>> devices);
    ~PvNetworkAdapter() override;
};

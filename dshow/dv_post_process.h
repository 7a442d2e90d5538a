// "DV Post Process": rewrites one byte pattern in the encoded DV stream behind the DV encoder, in place:
// every C8 FC FF becomes CF FD FF.
#pragma once

#include "dshow/base/trans_in_place_filter.h"

class CDVPostProcess : public CTransInPlaceFilter {
public:
    CDVPostProcess(LPUNKNOWN pUnk, HRESULT* phr);

    // Video of any subtype; S_FALSE for anything else.
    HRESULT CheckInputType(const CMediaType* mtIn) override;
    HRESULT Transform(IMediaSample* pSample) override;
};

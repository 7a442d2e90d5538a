#include "dshow/video_header.h"

BITMAPINFOHEADER* VideoBitmapHeader(AM_MEDIA_TYPE* mt) {
    if (mt == nullptr || mt->pbFormat == nullptr) {
        return nullptr;
    }
    if (IsEqualGUID(mt->formattype, FORMAT_VideoInfo) && mt->cbFormat >= sizeof(VIDEOINFOHEADER)) {
        return &reinterpret_cast<VIDEOINFOHEADER*>(mt->pbFormat)->bmiHeader;
    }
    if (IsEqualGUID(mt->formattype, FORMAT_VideoInfo2) && mt->cbFormat >= sizeof(VIDEOINFOHEADER2)) {
        return &reinterpret_cast<VIDEOINFOHEADER2*>(mt->pbFormat)->bmiHeader;
    }
    return nullptr;
}

const BITMAPINFOHEADER* VideoBitmapHeader(const AM_MEDIA_TYPE* mt) {
    return VideoBitmapHeader(const_cast<AM_MEDIA_TYPE*>(mt));
}

// The bitmap header inside a video media type's format block, for the filters that look at frame geometry.
#pragma once

#include "dshow/base/dshow_headers.h"

// The header of a VIDEOINFOHEADER or VIDEOINFOHEADER2 format; null for any other format type, and for a
// format block too short to hold the structure its type names.
const BITMAPINFOHEADER* VideoBitmapHeader(const AM_MEDIA_TYPE* mt);
BITMAPINFOHEADER* VideoBitmapHeader(AM_MEDIA_TYPE* mt);

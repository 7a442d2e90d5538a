// How the encoder graph joins and parts its filters: one routine picks the pins for every connection, and
// two take connections apart again when an export needs another wiring.
#pragma once

#include "dshow/base/dshow_headers.h"

namespace QVN::Graph {

// Joins from's output pin to to's input pin with the graph's intelligent connect (which may insert
// converters). A pin is the one whose name begins with the given name (direction not checked), or, with no
// name, the first pin of the right direction that is not connected yet. E_INVALIDARG when a filter is
// missing; VFW_E_NOT_FOUND when no pin fits.
HRESULT ConnectFilters(IGraphBuilder* graph, IBaseFilter* from, const wchar_t* fromPin, IBaseFilter* to,
                       const wchar_t* toPin);

// Takes apart the connection of the named pin of filter (the filters below keep their other connections:
// the caller parts those it rewires). S_OK also when the pin was not connected.
HRESULT DisconnectBelow(IGraphBuilder* graph, IBaseFilter* filter, const wchar_t* pinName);

// Takes apart every connection of every pin of filter, in both directions.
HRESULT DisconnectFilter(IGraphBuilder* graph, IBaseFilter* filter);

// The pin of filter whose name begins with name, or the first unconnected pin of the given direction when
// name is null; with a reference, or null.
IPin* FindPin(IBaseFilter* filter, const wchar_t* name, PIN_DIRECTION direction);

} // namespace QVN::Graph

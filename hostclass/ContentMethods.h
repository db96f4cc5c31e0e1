// The two methods that run a whole transfer and deliver its content.
#pragma once

#include "host/ClassSystem.h"

class HTTPConnectionAdapter;

namespace netrove {

// Result: the content as bytes, after whatever ResponsePayload held. Input: whether the content goes there; if not,
// only the consumer receives it.
void copyContentToByteArray(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue* results, int inputCount,
                            const vcos::COSValue* inputs);

// Input: the name of the file, which is created or truncated. Raises VANTIK:webservices:InvalidFilename if it cannot be
// opened or a write to it failed.
void copyContentToFile(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue* results, int inputCount,
                       const vcos::COSValue* inputs);

} // namespace netrove

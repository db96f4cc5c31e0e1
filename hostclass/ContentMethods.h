// The two methods that run a whole transfer and deliver its content.
#pragma once

#include "host/ClassSystem.h"

class HTTPConnectionAdapter;

namespace netrove {

// Result: the content as bytes, behind whatever ResponsePayload held. Input: whether the content goes there; without it
// the consumer alone receives the content.
void copyContentToByteArray(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue* results, int inputCount,
                            const vcos::COSValue* inputs);

// Input: the name of the file, which is created or truncated. Raises VANTIK:webservices:InvalidFilename where it cannot
// be opened, or where a write to it failed.
void copyContentToFile(HTTPConnectionAdapter* adapter, int resultCount, vcos::COSValue* results, int inputCount,
                       const vcos::COSValue* inputs);

} // namespace netrove

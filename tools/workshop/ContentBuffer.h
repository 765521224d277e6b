// ContentBuffer: a content that a scan shows, as the engine's own readers take it. Nothing is copied but what they
// read.
//   Borrows: the content, and so lives no longer than the event.
//   Throws:  IOException when bytes cannot be read, and as every buffer that can only be read.
#ifndef VOLE_WORKSHOP_CONTENT_BUFFER_H
#define VOLE_WORKSHOP_CONTENT_BUFFER_H

#include "io/ReadOnlyBufferBase.h"
#include "vole.h"

class ContentBuffer : public ZOV_SPACE::ReadOnlyBufferBase {
public:
    explicit ContentBuffer(const vole_content& content);

    int read(long pos) override;
    int read(long pos, char* buf, int n) override;

private:
    const vole_content& _content;
};

#endif  // VOLE_WORKSHOP_CONTENT_BUFFER_H

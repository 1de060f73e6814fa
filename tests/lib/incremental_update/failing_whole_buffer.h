#pragma once

#include "incre_whole_data_buffer.h"

#include <vector>

namespace OrvaneTest {

// Whole-cloud buffers whose allocations fail on demand, as on a GPU that is out of memory. It
// fails the allocation numbered `failAt` (from 0), or every one while `failAlways` holds, and
// remembers every buffer it was asked to fill.
class FailingWholeBuffer : public Vorna::Orvane::IncrePtCommonWholeBuffer
{
public:
    int failAt = -1;
    bool failAlways = false;
    int allocations = 0;
    std::vector<GLuint> asked;

protected:
    bool allocateZeroed(int index, GLuint buffer, qint64 bytes) override
    {
        asked.push_back(buffer);
        if (allocations++ == failAt || failAlways)
            return false;
        return IncrePtCommonWholeBuffer::allocateZeroed(index, buffer, bytes);
    }
};

} // namespace OrvaneTest

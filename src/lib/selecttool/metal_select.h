#pragma once

#include <osg/Array>
#include <osg/Matrixd>
#include <osg/Matrixf>
#include <osg/Vec4i>

#include <cstdint>
#include <functional>
#include <memory>

struct simd_float4x4;

namespace osg {
class Node;
class View;
} // namespace osg

namespace Vorna {
namespace Orvane {

class MetalSelectPrivate;

// One selection: the states of `vertexCount` vertices against a painted mask of the viewport.
struct SelectParam {
    bool isThrough = true; // false: only what the depth image shows is selected
    osg::Vec3Array* positions = nullptr;
    osg::ByteArray* selectState = nullptr;     // first content of the result
    osg::ByteArray* initialState = nullptr;    // what an erase returns to
    osg::ByteArray* currentState = nullptr;    // the states before this selection
    const unsigned char* selectArea = nullptr; // width x height, 255 painted, rows from the bottom
    osg::FloatArray* depth = nullptr;          // window depth, width x height; not through only
    osg::Matrixf matModelViewProj;
    osg::Matrixf matModelView;
    osg::Matrixf matProj;
    osg::Vec4i viewport; // x, y, width, height
    std::uint32_t vertexCount = 0;
    std::uint32_t faceCount = 0;
    std::uint32_t dataType = 2; // 1 mesh, 2 points
    int selectStateValue = 1;
    bool hasIndices = false; // mesh: shared vertices; false: three vertices per face
    bool erase = false;
    bool coverOther = true;
    bool recoverInitial = false;
};

// Element (i, j) of the OSG matrix goes to column i, row j, so that the row-vector matrix acts
// on column vectors in the kernels without moving memory.
void osgMt2SimdMt(osg::Matrixf& osgMatrix, simd_float4x4& simdMatrix);

// Selection on the compute device. One selection runs at a time: a second caller blocks until
// the first one's result has been handed over. Any thread may call it.
class MetalSelect
{
public:
    // Builds the device objects; until then SelectProcess does nothing.
    void init();
    bool isInited() const { return m_private != nullptr; }

    // Returns before the work ends. `onDone` gets the new states on the device's completion
    // thread; the array lives until onDone returns unless it takes a reference. onDone must not
    // select again on this object before returning.
    void SelectProcess(SelectParam param, std::function<void(osg::ByteArray*)> onDone);

    // For the first parental path of `node` under a camera of `view`: its local-to-world matrix,
    // and whether every switch along the path shows it.
    static void getState(osg::View* view, osg::Node* node, bool& visible, osg::Matrixd& matrix);

private:
    std::shared_ptr<MetalSelectPrivate> m_private;
};

} // namespace Orvane
} // namespace Vorna

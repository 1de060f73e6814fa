#include "metal_select.h"

#include "metal_select_private.h"
#include "simd_types.h"

#include <osg/Camera>
#include <osg/Switch>
#include <osg/Transform>
#include <osg/View>

namespace Vorna {
namespace Orvane {

void osgMt2SimdMt(osg::Matrixf& osgMatrix, simd_float4x4& simdMatrix)
{
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j)
            simdMatrix.columns[i][j] = osgMatrix(i, j);
    }
}

void MetalSelect::init()
{
    if (!m_private)
        m_private = std::make_shared<MetalSelectPrivate>();
}

void MetalSelect::SelectProcess(SelectParam param, std::function<void(osg::ByteArray*)> onDone)
{
    if (m_private)
        m_private->selectProcess(param, std::move(onDone));
}

void MetalSelect::getState(osg::View* view, osg::Node* node, bool& visible, osg::Matrixd& matrix)
{
    if (!view || !node)
        return;
    for (const osg::NodePath& path : node->getParentalNodePaths()) {
        const osg::Camera* camera = path.empty() ? nullptr : path.front()->asCamera();
        if (!camera || camera->getView() != view)
            continue;
        matrix = osg::computeLocalToWorld(path);
        visible = true;
        for (std::size_t i = 0; i + 1 < path.size(); ++i) {
            const osg::Switch* sw = path[i]->asSwitch();
            if (sw && !sw->getChildValue(path[i + 1]))
                visible = false;
        }
        return;
    }
}

} // namespace Orvane
} // namespace Vorna

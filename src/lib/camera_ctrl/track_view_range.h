#pragma once

#include <array>
#include <map>
#include <osg/MatrixTransform>
#include <osg/Switch>
#include <vector>

namespace Vorna {
namespace Orvane {

// The scanner's view volume as nested rectangles at three distances along the object's -z, for
// two track types, and the test whether a point lies between them.
class TrackViewRange : public osg::MatrixTransform
{
public:
    enum TrackType : int { Track0 = 0, Track1 = 1 };
    enum CrossSectionType : int { Near = 0, Middle = 1, Far = 2 };

    TrackViewRange();

    bool setCrossSection(int trackType, int section, float distance, float width, float height);
    bool setColor(int trackType, const osg::Vec4f& faceColor, bool show,
                  const osg::Vec4f& lineColor);
    // Makes the two switch contents from the stored rectangles.
    bool build();
    bool switchTrackType(int trackType);
    int trackType() const { return m_trackType; }
    bool isPtInViewRange(const osg::Vec3f& worldPoint) const;

private:
    struct CrossSecRect {
        std::array<osg::Vec3f, 4> corners;
    };
    struct CrossSecInfo {
        std::map<int, CrossSecRect> rects;
        std::vector<osg::Vec4f> nearPlanes; // between sections 0 and 1
        std::vector<osg::Vec4f> farPlanes;  // between sections 1 and 2
        osg::Vec4f faceColor;
        osg::Vec4f lineColor;
        bool show = true;
    };

    static std::vector<osg::Vec4f> framePlanes(const CrossSecRect& a, const CrossSecRect& b);
    osg::Group* buildGroup(CrossSecInfo& info) const;

    std::array<CrossSecInfo, 2> m_info;
    int m_trackType = 0;
};

} // namespace Orvane
} // namespace Vorna

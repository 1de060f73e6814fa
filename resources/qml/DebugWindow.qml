import QtQuick 2.15
import QtQuick.Window 2.15
import Vorna.Orvane 1.0

// The developers' tuning window: every change goes straight to the scene's uniforms.
Window {
    id: window
    objectName: "renderDebugWindow"
    x: 100
    y: 50
    width: 900
    height: 800
    minimumWidth: 500
    minimumHeight: 500
    title: "渲染调试窗口 v1.0"
    color: "#f5f5f5"
    visible: true

    Flickable {
        anchors.fill: parent
        anchors.margins: 12
        contentWidth: panels.width
        contentHeight: panels.height
        clip: true

        Row {
            id: panels
            spacing: 20
            LightAdjustPanel {
                id: lights
                objectName: "lightPanel"
            }
            BSDFAdjustPanel {
                objectName: "bsdfPanel"
                onResetRequested: {
                    $DbgRender.reset()
                    lights.restore()
                    points.restore()
                    restore()
                }
            }
            PointAdjustPanel {
                id: points
                objectName: "pointPanel"
            }
        }
    }
}

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

    // The scene back to the shaders' defaults, and the widgets with it.
    function resetAll() {
        $DbgRender.reset()
        lights.restore()
        surface.restore()
        points.restore()
    }

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
                id: surface
                objectName: "bsdfPanel"
            }
            Column {
                spacing: 16
                PointAdjustPanel {
                    id: points
                    objectName: "pointPanel"
                }
                Row {
                    spacing: 6
                    Repeater {
                        model: [
                            { name: "Fit view", act: function() { $DbgRender.framming() } },
                            { name: "Save live data", act: function() { $DbgRender.saveIncreData() } },
                            { name: "Reset", act: function() { window.resetAll() } }
                        ]
                        Rectangle {
                            objectName: "button_" + modelData.name
                            width: 90
                            height: 26
                            radius: 4
                            color: press.pressed ? "#2a6fb8" : "#4a90d9"
                            Text {
                                anchors.centerIn: parent
                                text: modelData.name
                                font.pixelSize: 11
                                color: "white"
                            }
                            MouseArea {
                                id: press
                                anchors.fill: parent
                                onClicked: modelData.act()
                            }
                        }
                    }
                }
            }
        }
    }
}

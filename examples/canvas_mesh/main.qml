import QtQuick 2.15
import QtQuick.Window 2.15
import Vorna.Orvane 1.0

Window {
    width: 480
    height: 360
    visible: true
    title: "liborvane example"

    Canvas3DItem {
        objectName: "canvas"
        anchors.fill: parent
        clearColor: "#204080"
    }
}

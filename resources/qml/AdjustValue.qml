import QtQuick 2.15

// One named value: a slider with its number, or a check box when `toggle` is set.
// `edited` fires for changes after creation, whether dragged or set from outside.
Item {
    id: root
    property string label: ""
    property real value: 0
    property real from: 0
    property real to: 1
    property int decimals: 2
    property bool toggle: false
    property bool quiet: true
    signal edited(real value)

    // Moves the widget without telling anyone, as a reset does.
    function restore(v) {
        quiet = true
        value = v
        quiet = false
    }

    implicitWidth: 270
    implicitHeight: 22
    Component.onCompleted: quiet = false
    onValueChanged: if (!quiet) edited(value)

    Text {
        id: caption
        width: 120
        anchors.verticalCenter: parent.verticalCenter
        text: root.label
        font.pixelSize: 12
        color: "#303030"
        elide: Text.ElideRight
    }

    Rectangle {
        id: track
        visible: !root.toggle
        anchors.left: caption.right
        anchors.right: number.left
        anchors.margins: 6
        anchors.verticalCenter: parent.verticalCenter
        height: 4
        radius: 2
        color: "#c8c8c8"
        Rectangle {
            width: handle.x + handle.width / 2
            height: parent.height
            radius: 2
            color: "#4a90d9"
        }
        Rectangle {
            id: handle
            width: 14
            height: 14
            radius: 7
            y: -5
            x: (track.width - width) * Math.max(0, Math.min(1, (root.value - root.from) / (root.to - root.from)))
            color: drag.pressed ? "#2a6fb8" : "#ffffff"
            border.color: "#4a90d9"
        }
        MouseArea {
            id: drag
            anchors.fill: parent
            anchors.margins: -8
            function moveTo(px) {
                var t = Math.max(0, Math.min(1, (px - 8 - handle.width / 2) / (track.width - handle.width)))
                var f = Math.pow(10, root.decimals)
                root.value = Math.round((root.from + t * (root.to - root.from)) * f) / f
            }
            onPressed: moveTo(mouse.x)
            onPositionChanged: if (pressed) moveTo(mouse.x)
        }
    }

    Rectangle {
        visible: root.toggle
        anchors.left: caption.right
        anchors.leftMargin: 6
        anchors.verticalCenter: parent.verticalCenter
        width: 16
        height: 16
        radius: 3
        border.color: "#4a90d9"
        color: root.value !== 0 ? "#4a90d9" : "#ffffff"
        MouseArea {
            anchors.fill: parent
            onClicked: root.value = root.value !== 0 ? 0 : 1
        }
    }

    Text {
        id: number
        visible: !root.toggle
        width: 50
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        horizontalAlignment: Text.AlignRight
        text: root.value.toFixed(root.decimals)
        font.pixelSize: 12
        color: "#303030"
    }
}

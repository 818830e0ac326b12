import QtQuick
import QtQuick.Controls.Material

// Lines of which each changes twice a second, none in step with its neighbour: the least that so many pipelines on air
// can cost a window.
Column {
    id: lines

    required property int count
    property int changes: 0

    Timer {
        interval: 100
        repeat: true
        running: true
        onTriggered: ++lines.changes
    }

    Repeater {
        model: lines.count

        Label {
            required property int index

            font.family: "monospace"
            text: "frame " + Math.floor((lines.changes + index) / 5) + " fps=25 bitrate=6000.0kbits/s speed=1x"
        }
    }
}

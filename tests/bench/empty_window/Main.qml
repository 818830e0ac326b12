import QtQuick.Controls.Material

ApplicationWindow {
    width: 1280
    height: 820
    visible: true
    title: "Empty"
}

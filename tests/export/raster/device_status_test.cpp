// A device session is an export for the host's status inquiry: it says
// whether the output the session wrote holds a whole picture.
#include <mivo4/export.h>

#include "export/raster/driver_session.h"

using namespace mivo4::test;


class DeviceStatus : public DriverSession {
protected:
    void image(int32_t w, int32_t h) {
        ASSERT_EQ(send(RectElement(518, 0, 0, w - 1, h - 1)), 0);
        ASSERT_EQ(send(4), 0);
        ASSERT_EQ(send(ColorTableElement(0, {VCD{255, 255, 255}, VCD{0, 0, 0}})), 0);
        ASSERT_EQ(send(BeginImageElement(w, h, 1)), 0);
        const std::vector<uint8_t> rows(static_cast<size_t>(h) * 4, 0x5A);
        ASSERT_EQ(send(CellArrayElement(0, h - 1, w, h, 1, rows)), 0);
        ASSERT_EQ(send(EndImageElement()), 0);
        ASSERT_EQ(send(5), 0);
    }
};

TEST_F(DeviceStatus, AWholeImageEndsComplete) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(send(1), 0);
    ASSERT_EQ(send(3), 0);
    image(20, 10);
    ASSERT_EQ(send(2), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_COMPLETE);
}

TEST_F(DeviceStatus, ADeviceClosedWithoutAPictureWroteNothing) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(send(1), 0);
    ASSERT_EQ(send(2), 0);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_NOTHING);
}

TEST_F(DeviceStatus, AStopAtCloseEndsStopped) {
    ASSERT_EQ(initialise(), 0);
    ASSERT_EQ(send(1), 0);
    ASSERT_EQ(send(3), 0);
    image(20, 10);
    statusLog().answer = 1;
    EXPECT_EQ(send(2), RASTER_ERR_STOPPED);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_STOPPED);
}

TEST_F(DeviceStatus, AnOutputThatCouldNotBeOpenedEndsWriteFailed) {
    std::strcpy(connectName, "no/dir/x.cal");  // fits the fixture's 16 bytes
    ASSERT_EQ(initialise(), 0);
    EXPECT_EQ(send(1), RASTER_ERR_OUTPUT);
    send(2);
    EXPECT_EQ(GetLastExportStatus(), MIVO4_EXPORT_WRITE_FAILED);
}

// View stepping without threads: one queued gesture value per frame, the view path between
// gestures, what each frame asks to record, and the lens time clamped into the play range.
#include "engine/view_control.h"

#include <gtest/gtest.h>

#include <vector>

namespace vexel {
namespace {

using Record = ViewStep::Record;

// A path whose view at time t is (t, -t, 90 + t), with the times it was asked for.
class LinearPath final : public ViewPath {
public:
    void GetAngle(double time, double* pan, double* tilt, double* fov) override {
        asked.push_back(time);
        *pan = time;
        *tilt = -time;
        *fov = 90 + time;
    }
    void GetPan(double time, double* pan, double* tilt) override {
        asked.push_back(time);
        *pan = time;
        *tilt = -time;
    }
    void GetZoom(double time, double* fov) override {
        asked.push_back(time);
        *fov = 90 + time;
    }
    std::vector<double> asked;
};

TEST(ViewControl, BetweenGesturesEachFrameTakesThePathAtItsClampedTime) {
    ViewControl control;
    LinearPath path;
    EXPECT_EQ(control.Step(-1.0, 10.0, path).lensTime, 0.0);
    EXPECT_EQ(control.Step(12.0, 10.0, path).lensTime, 10.0);
    const ViewStep step = control.Step(4.0, 10.0, path);
    EXPECT_EQ(step.record, Record::None);
    EXPECT_EQ(step.view.pan, 4.0);
    EXPECT_EQ(step.view.fov, 94.0);
    EXPECT_EQ(control.Current().tilt, -4.0);
    EXPECT_EQ(path.asked, (std::vector<double>{0.0, 10.0, 4.0}));

    // Queued values wait for a gesture; ending one drops what it did not use.
    control.AddPan(50.0, 5.0);
    EXPECT_EQ(control.Step(1.0, 10.0, path).view.pan, 1.0);
    control.StartPan();
    EXPECT_EQ(control.Step(2.0, 10.0, path).view.pan, 50.0);
    control.AddPan(60.0, 5.0);
    control.EndPan();
    EXPECT_EQ(control.Step(3.0, 10.0, path).view.pan, 3.0);
}

// (A pan's one value per presented frame, each recorded, shows in the engine's view-change test.)
TEST(ViewControl, AZoomRecordsOnlyFramesThatTookAValueAndCombinesWithAPan) {
    ViewControl control;
    LinearPath path;
    control.StartZoom();
    control.AddZoom(70.0);
    ViewStep step = control.Step(2.0, 10.0, path);
    EXPECT_EQ(step.record, Record::Zoom);
    EXPECT_EQ(step.view.fov, 70.0);
    EXPECT_EQ(step.view.pan, 2.0) << "pan and tilt follow the path while zooming";
    step = control.Step(3.0, 10.0, path);
    EXPECT_EQ(step.record, Record::None);
    EXPECT_EQ(step.view.fov, 70.0);

    control.StartPan();
    control.AddPan(40.0, 4.0);
    control.AddZoom(60.0);
    step = control.Step(4.0, 10.0, path);
    EXPECT_EQ(step.record, Record::PanZoom);
    EXPECT_EQ(step.view.pan, 40.0);
    EXPECT_EQ(step.view.fov, 60.0);
    path.asked.clear();
    step = control.Step(5.0, 10.0, path);
    EXPECT_EQ(step.record, Record::Pan);
    EXPECT_EQ(step.view.fov, 60.0);
    EXPECT_TRUE(path.asked.empty()) << "both gestures: the path is not read";
}

TEST(ViewControl, APredictionIsTheNextStepWithoutItsQueuedValues) {
    ViewControl control;
    LinearPath path;
    EXPECT_EQ(control.Predict(3.0, 10.0, path).pan, 3.0) << "between gestures: the path";
    EXPECT_EQ(control.Current().pan, 0.0) << "a prediction changes nothing";

    control.StartPan();
    control.AddPan(40.0, 4.0);
    const ViewAngles predicted = control.Predict(5.0, 10.0, path);
    EXPECT_EQ(predicted.pan, 0.0) << "panning: the current pan until a frame takes a value";
    EXPECT_EQ(predicted.fov, 95.0) << "the path still steers the field of view";
    EXPECT_EQ(control.Step(5.0, 10.0, path).view.pan, 40.0)
        << "the prediction took the queued value";
    const ViewAngles still = control.Predict(6.0, 10.0, path);
    const ViewAngles stepped = control.Step(6.0, 10.0, path).view;
    EXPECT_EQ(still.pan, stepped.pan);
    EXPECT_EQ(still.fov, stepped.fov);
}

}  // namespace
}  // namespace vexel

// The media-graph wrappers against the runtime: failures answered by result or by ComException
// with the step's context and the runtime's text, pin search by direction, the cached graph, and
// running, pausing and stopping a graph.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "mediagraph/check_hresult.h"
#include "mediagraph/com_runtime.h"
#include "mediagraph/e_filter.h"
#include "mediagraph/e_graph_builder.h"
#include "platform/module.h"
#include "vexel/com_object.h"
#include "vexel/enumerator.h"

namespace vexel {
namespace {

// A filter of pins in a given order of directions, counting the graph lookups asked of it.
class TestFilter final : public ComObject<IBaseFilter> {
public:
    class Pin final : public ComObject<IPin> {
    public:
        Pin(TestFilter& owner, PIN_DIRECTION direction) : owner_(owner), direction_(direction) {}
        HRESULT QueryInterface(const GUID* iid, void** out) override {
            *out = nullptr;
            if (*iid == IID_IUnknown || *iid == IID_IPin) return ShareInterface<IPin>(this, out);
            return E_NOINTERFACE;
        }
        HRESULT Connect(IPin*, const MediaType*) override { return GRAPH_E_NO_ACCEPTABLE_TYPES; }
        HRESULT ReceiveConnection(IPin*, const MediaType*) override {
            return GRAPH_E_TYPE_NOT_ACCEPTED;
        }
        HRESULT Disconnect() override { return S_FALSE; }
        HRESULT ConnectedTo(IPin** pin) override {
            *pin = nullptr;
            return GRAPH_E_NOT_CONNECTED;
        }
        HRESULT ConnectionMediaType(MediaType*) override { return GRAPH_E_NOT_CONNECTED; }
        HRESULT QueryPinInfo(PIN_INFO* info) override {
            owner_.AddRef();
            info->pFilter = &owner_;
            info->dir = direction_;
            info->achName[0] = u'\0';
            return S_OK;
        }
        HRESULT QueryDirection(PIN_DIRECTION* direction) override {
            if (owner_.failDirection) return E_UNEXPECTED;
            *direction = direction_;
            return S_OK;
        }
        HRESULT QueryAccept(const MediaType*) override { return S_FALSE; }
        HRESULT GetMediaType(uint32_t, MediaType*) override { return S_FALSE; }
        HRESULT EndOfStream() override { return S_OK; }

    private:
        TestFilter& owner_;  // a test filter outlives its pins
        PIN_DIRECTION direction_;
    };

    explicit TestFilter(std::vector<PIN_DIRECTION> directions) {
        for (PIN_DIRECTION d : directions) pins_.emplace_back(new Pin(*this, d));
    }

    HRESULT QueryInterface(const GUID* iid, void** out) override {
        *out = nullptr;
        if (*iid == IID_IUnknown || *iid == IID_IMediaFilter || *iid == IID_IBaseFilter) {
            return ShareInterface<IBaseFilter>(this, out);
        }
        return E_NOINTERFACE;
    }
    HRESULT Stop() override {
        state = State_Stopped;
        return S_OK;
    }
    HRESULT Pause() override {
        state = State_Paused;
        return S_OK;
    }
    HRESULT Run() override {
        state = neverRuns ? State_Paused : State_Running;
        return S_OK;
    }
    HRESULT GetState(uint32_t, FILTER_STATE* out) override {
        *out = state;
        return S_OK;
    }
    HRESULT EnumPins(IEnumPins** out) override {
        if (failEnumPins) return E_OUTOFMEMORY;
        return PinEnumerator::Create(pins_, out);
    }
    HRESULT QueryFilterInfo(FILTER_INFO* info) override {
        ++infoQueries;
        info->achName[0] = u'\0';
        info->pGraph = graph_;
        if (graph_ != nullptr) graph_->AddRef();
        return S_OK;
    }
    HRESULT JoinFilterGraph(IFilterGraph* graph, const char16_t* name) override {
        graph_ = graph;
        joinedName = name != nullptr ? name : u"";
        return S_OK;
    }

    IPin* PinAt(size_t i) const { return pins_[i].get(); }

    std::atomic<int> infoQueries{0};
    std::atomic<FILTER_STATE> state{State_Stopped};
    bool neverRuns = false;
    bool failEnumPins = false;
    bool failDirection = false;
    std::u16string joinedName;

private:
    std::vector<CountedRef<IPin>> pins_;
    IFilterGraph* graph_ = nullptr;
};

CountedRef<TestFilter> MakeFilter(std::vector<PIN_DIRECTION> directions) {
    return CountedRef<TestFilter>(new TestFilter(std::move(directions)));
}

// Runs `step` and returns the ComException it throws (empty context when it throws none).
template <class Step>
ComException Thrown(Step step) {
    try {
        step();
    } catch (ComException* failure) {
        ComException copy = *failure;
        delete failure;
        return copy;
    }
    return {};
}

EGraphBuilder NewGraph() {
    EGraphBuilder graph;
    EXPECT_TRUE(graph.CoCreateInstance(FailThrow));
    return graph;
}

TEST(CheckHResult, SuccessCodesPassWithoutTextAndFailuresFollowTheMode) {
    EXPECT_FALSE(CheckHResult(S_OK, u"step", FailThrow));
    EXPECT_FALSE(CheckHResult(S_FALSE, u"step", FailThrow));  // success-false is no failure
    EXPECT_TRUE(CheckHResult(E_POINTER, u"step", FailReturn));

    const ComException thrown = Thrown([] { CheckHResult(E_POINTER, u"step", FailThrow); });
    EXPECT_EQ(thrown.context, u"step");
    EXPECT_EQ(thrown.errorText, ErrorText(E_POINTER));
    EXPECT_FALSE(thrown.errorText.empty());
    // Every mode other than FailReturn throws.
    EXPECT_EQ(Thrown([] { CheckHResult(E_FAIL, u"quiet", FailQuiet); }).context, u"quiet");
}

TEST(EFilter, CreationFailuresCarryTheFilterNameInTheirContext) {
    const EGraphBuilder graph = NewGraph();
    const GUID unknownClass = {0x01234567, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
    EFilter filter;
    EXPECT_FALSE(filter.CoCreateInstance(graph, unknownClass, u"audio Renderer", FailReturn));
    const ComException thrown =
        Thrown([&] { filter.CoCreateInstance(graph, unknownClass, u"audio Renderer", FailThrow); });
    EXPECT_EQ(thrown.context, u"EFilter::CoCreateInstance( audio Renderer )");
    EXPECT_EQ(thrown.errorText, ErrorText(REGDB_E_CLASSNOTREG));

    // Without a module or without its export there is nothing to call, and nothing is thrown.
    SiblingModule absent("libVexelAbsentFeed.so");
    EXPECT_FALSE(
        filter.FilterGetClassObject(graph, absent, unknownClass, u"PCM File Source", FailThrow));
    SiblingModule math("libm.so.6");
    ASSERT_TRUE(math.Load());
    EXPECT_FALSE(
        filter.FilterGetClassObject(graph, math, unknownClass, u"PCM File Source", FailThrow));
}

TEST(EFilter, CreatedFilterIsNamedAndAddedToTheGraph) {
    const EGraphBuilder graph = NewGraph();
    EFilter renderer;
    ASSERT_TRUE(
        renderer.CoCreateInstance(graph, CLSID_AudioRenderer, u"audio Renderer", FailThrow));
    EXPECT_EQ(renderer.Name(), u"audio Renderer");
    EXPECT_TRUE(graph.HasFilters());
    FILTER_INFO info{};
    ASSERT_EQ(renderer.Filter()->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::u16string(info.achName), u"audio Renderer");
    ASSERT_NE(info.pGraph, nullptr);
    info.pGraph->Release();

    // The same name twice in one graph is refused.
    EFilter second;
    EXPECT_FALSE(
        second.CoCreateInstance(graph, CLSID_AudioRenderer, u"audio Renderer", FailReturn));
}

TEST(EFilter, AttachAddsUnderTheStoredNameWhenGivenNone) {
    const EGraphBuilder graph = NewGraph();
    const EGraphBuilder other = NewGraph();
    EFilter named;
    ASSERT_TRUE(named.CoCreateInstance(graph, CLSID_AudioRenderer, u"audio Renderer", FailThrow));
    auto filter = MakeFilter({PINDIR_INPUT});
    EFilter attached;
    attached = named;  // shares the filter and copies the name
    ASSERT_TRUE(attached.Attach(filter.get(), other, u""));
    EXPECT_EQ(filter->joinedName, u"audio Renderer");
    const EGraphBuilder third = NewGraph();
    EXPECT_EQ(third.AddFilterEx(attached, u""), S_OK);  // an empty name: the stored one
    EXPECT_EQ(filter->joinedName, u"audio Renderer");
    EXPECT_EQ(third.AddFilterEx(attached, u"again"), E_INVALIDARG);  // already in that graph
    EXPECT_FALSE(attached.Attach(nullptr, other, u"x"));
}

TEST(EFilter, PinSearchCountsOnlyTheAskedDirection) {
    const EGraphBuilder graph = NewGraph();
    auto filter = MakeFilter({PINDIR_INPUT, PINDIR_OUTPUT, PINDIR_INPUT});
    EFilter wrapper;
    ASSERT_TRUE(wrapper.Attach(filter.get(), graph, u"three pins"));
    EXPECT_EQ(wrapper.GetOutputPin(0).get(), filter->PinAt(1));
    EXPECT_FALSE(wrapper.GetOutputPin(1));  // the inputs do not count towards the index
    EXPECT_EQ(wrapper.GetInputPin(0).get(), filter->PinAt(0));
    EXPECT_EQ(wrapper.GetInputPin(1).get(), filter->PinAt(2));
    EXPECT_FALSE(wrapper.GetInputPin(2));
    EXPECT_FALSE(EFilter().GetInputPin(0));  // no filter, no pin

    // A runtime failure in the search throws, whatever the caller's mode.
    filter->failEnumPins = true;
    EXPECT_EQ(Thrown([&] { wrapper.GetInputPin(0); }).context, u"EnumPins");
    filter->failEnumPins = false;
    filter->failDirection = true;
    EXPECT_EQ(Thrown([&] { wrapper.ConnectTo(wrapper, 0, 0, FailReturn); }).context,
              u"QueryDirection");
}

TEST(EFilter, GraphIsLookedUpOnceAndThenCached) {
    const EGraphBuilder graph = NewGraph();
    auto filter = MakeFilter({PINDIR_OUTPUT});
    EFilter wrapper;
    ASSERT_TRUE(wrapper.Attach(filter.get(), graph, u"f"));
    const EGraphBuilder first = wrapper.Graph();
    const EGraphBuilder second = wrapper.Graph();
    EXPECT_EQ(filter->infoQueries.load(), 1);
    EXPECT_EQ(first.GraphInterface(), graph.GraphInterface());
    EXPECT_EQ(second.GraphInterface(), graph.GraphInterface());

    // A filter in no graph has an empty graph, and a connect through it is simply false.
    auto loose = MakeFilter({PINDIR_OUTPUT});
    EFilter looseWrapper;
    looseWrapper.Attach(loose.get(), EGraphBuilder(), u"loose");
    EXPECT_EQ(looseWrapper.Graph().GraphInterface(), nullptr);
    EXPECT_FALSE(looseWrapper.ConnectTo(wrapper, 0, 0, FailThrow));
}

TEST(EGraphBuilder, ConnectFailuresCarryTheConnectContextAndText) {
    const EGraphBuilder graph = NewGraph();
    auto inputsOnly = MakeFilter({PINDIR_INPUT});
    auto outputsOnly = MakeFilter({PINDIR_OUTPUT});
    EFilter upstream, downstream;
    ASSERT_TRUE(upstream.Attach(inputsOnly.get(), graph, u"up"));
    ASSERT_TRUE(downstream.Attach(outputsOnly.get(), graph, u"down"));

    // No output pin upstream: a null pin reaches the graph, which refuses it.
    EXPECT_FALSE(upstream.ConnectTo(downstream, 0, 0, FailReturn));
    EXPECT_FALSE(upstream.ConnectTo(downstream, 0, 0, FailQuiet));
    const ComException thrown = Thrown([&] { upstream.ConnectTo(downstream, 0, 0, FailThrow); });
    EXPECT_EQ(thrown.context, u"IGraphBuilder::Connect");
    EXPECT_EQ(thrown.errorText, ErrorText(E_POINTER));

    // Pins the wrong way round.
    const ComException reversed = Thrown(
        [&] { graph.Connect(upstream.GetInputPin(0), downstream.GetOutputPin(0), FailThrow); });
    EXPECT_EQ(reversed.errorText, ErrorText(GRAPH_E_INVALID_DIRECTION));
    // A pin of a filter outside the graph.
    auto stranger = MakeFilter({PINDIR_INPUT});
    EXPECT_EQ(Thrown([&] {
                  graph.Connect(downstream.GetOutputPin(0), CountedRef<IPin>(stranger->PinAt(0)),
                                FailThrow);
              }).errorText,
              ErrorText(GRAPH_E_NOT_IN_GRAPH));
    // An empty wrapper connects nothing.
    EXPECT_FALSE(EGraphBuilder().Connect(nullptr, nullptr, FailThrow));
}

TEST(EGraphBuilder, GraphManagerFailureFollowsTheMode) {
    // A class factory that refuses, registered over the built-in graph manager.
    class Refusing final : public ComObject<IClassFactory> {
    public:
        HRESULT QueryInterface(const GUID* iid, void** out) override {
            *out = nullptr;
            if (*iid == IID_IUnknown || *iid == IID_IClassFactory)
                return ShareInterface<IClassFactory>(this, out);
            return E_NOINTERFACE;
        }
        HRESULT CreateInstance(IUnknown*, const GUID*, void** out) override {
            *out = nullptr;
            return E_OUTOFMEMORY;
        }
    };
    CountedRef<IClassFactory> refusing(new Refusing);
    uint32_t cookie = 0;
    ASSERT_EQ(RegisterClassObjectForTesting(&CLSID_FilterGraph, refusing.get(), &cookie), S_OK);
    EGraphBuilder graph;
    EXPECT_FALSE(graph.CoCreateInstance(FailReturn));
    const ComException thrown = Thrown([&] { graph.CoCreateInstance(FailThrow); });
    EXPECT_EQ(thrown.context, u"EGraphBuilder::CoCreateInstance");
    EXPECT_EQ(thrown.errorText, ErrorText(E_OUTOFMEMORY));
    EXPECT_EQ(RevokeClassObjectForTesting(cookie), S_OK);
    EXPECT_TRUE(graph.CoCreateInstance(FailThrow));  // the built-in class again
}

TEST(EGraphBuilder, RunPauseStopDriveEveryFilter) {
    EXPECT_EQ(EGraphBuilder().Run(), S_FALSE);
    const EGraphBuilder empty = NewGraph();
    EXPECT_EQ(empty.Run(), S_FALSE);  // no filter: nothing is called
    EXPECT_EQ(empty.Pause(), S_FALSE);
    EXPECT_EQ(empty.Stop(), S_FALSE);

    const EGraphBuilder graph = NewGraph();
    auto a = MakeFilter({}), b = MakeFilter({});
    EFilter wa, wb;
    ASSERT_TRUE(wa.Attach(a.get(), graph, u"a"));
    ASSERT_TRUE(wb.Attach(b.get(), graph, u"b"));
    EXPECT_EQ(graph.Run(), S_OK);
    EXPECT_EQ(a->state.load(), State_Running);
    EXPECT_EQ(b->state.load(), State_Running);
    EXPECT_EQ(graph.Pause(), S_OK);
    EXPECT_EQ(b->state.load(), State_Paused);
    EXPECT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(a->state.load(), State_Stopped);
}

TEST(EGraphBuilder, RunGivesUpOnAFilterThatNeverRuns) {
    const EGraphBuilder graph = NewGraph();
    auto stuck = MakeFilter({});
    stuck->neverRuns = true;
    EFilter wrapper;
    ASSERT_TRUE(wrapper.Attach(stuck.get(), graph, u"stuck"));
    EXPECT_EQ(graph.Run(), GRAPH_E_TIMEOUT);
    graph.Stop();
}

}  // namespace
}  // namespace vexel

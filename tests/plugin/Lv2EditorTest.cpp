// The LV2 bundle's editor, opened the way an LV2 host opens it: the plug-in and its UI
// instantiated from the shared object with the features JUCE's wrapper asks for, the UI embedded
// in an X window of ours. Needs a display; the test script provides a virtual one.
#include <juce_core/juce_core.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <map>
#include <string>

// Last: Xlib's macros (None, Bool, Status...) would break the headers above.
#include <X11/Xlib.h>

namespace
{
struct UridMap
{
    static LV2_URID map (LV2_URID_Map_Handle handle, const char* uri)
    {
        auto& ids = static_cast<UridMap*> (handle)->ids;
        const auto found = ids.find (uri);
        if (found != ids.end())
            return found->second;
        const auto id = static_cast<LV2_URID> (ids.size() + 1);
        ids.emplace (uri, id);
        return id;
    }
    std::map<std::string, LV2_URID> ids;
    LV2_URID_Map feature{this, map};
};
} // namespace

TEST (LoadedLV2Bundle, EditorOpensAndClosesAgainAndAgain)
{
    Display* display = XOpenDisplay (nullptr);
    if (display == nullptr)
        GTEST_SKIP() << "the LV2 editor needs an X display";
    // A window manager creates these; JUCE looks them up without creating them, and a bare X
    // server (Xvfb) has none, so the test stands in for the window manager.
    for (const char* name :
         {"WM_PROTOCOLS", "WM_TAKE_FOCUS", "WM_DELETE_WINDOW", "_NET_WM_PING", "WM_CHANGE_STATE",
          "WM_STATE", "_NET_WM_WINDOW_TYPE", "_NET_WM_STATE", "_NET_WM_STATE_HIDDEN",
          "_NET_FRAME_EXTENTS", "_NET_WORKAREA", "_MOTIF_WM_HINTS", "_NET_WM_ALLOWED_ACTIONS",
          "_NET_WM_WINDOW_TYPE_NORMAL", "_NET_WM_WINDOW_TYPE_COMBO", "_NET_WM_STATE_FULLSCREEN"})
        XInternAtom (display, name, False);
    XSync (display, False);
    const juce::File bundle (KELFINER_LV2_PATH);
    void* library = dlopen (bundle.getChildFile ("libKelfiner.so").getFullPathName().toRawUTF8(),
                            RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE (library, nullptr) << dlerror();
    const auto pluginEntry =
        reinterpret_cast<const LV2_Descriptor* (*) (uint32_t)> (dlsym (library, "lv2_descriptor"));
    const auto uiEntry = reinterpret_cast<const LV2UI_Descriptor* (*) (uint32_t)> (
        dlsym (library, "lv2ui_descriptor"));
    ASSERT_TRUE (pluginEntry != nullptr && uiEntry != nullptr);
    const auto* plugin = pluginEntry (0);
    const auto* ui = uiEntry (0);

    UridMap urids;
    const int32_t maxBlock = 512;
    const LV2_Options_Option options[] = {
        {LV2_OPTIONS_INSTANCE, 0, UridMap::map (&urids, LV2_BUF_SIZE__maxBlockLength),
         sizeof (int32_t), UridMap::map (&urids, LV2_ATOM__Int), &maxBlock},
        {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
    const LV2_Feature mapFeature{LV2_URID__map, &urids.feature};
    const LV2_Feature bounded{LV2_BUF_SIZE__boundedBlockLength, nullptr};
    const LV2_Feature optionsFeature{LV2_OPTIONS__options, (void*) options};
    const LV2_Feature* pluginFeatures[] = {&mapFeature, &bounded, &optionsFeature, nullptr};
    const auto bundlePath = bundle.getFullPathName() + "/";
    LV2_Handle instance =
        plugin->instantiate (plugin, 48000.0, bundlePath.toRawUTF8(), pluginFeatures);
    ASSERT_NE (instance, nullptr);

    const Window parent =
        XCreateSimpleWindow (display, DefaultRootWindow (display), 0, 0, 800, 520, 0, 0, 0);
    XSync (display, False); // the plug-in's own connection must find the window on the server
    const LV2_Feature access{LV2_INSTANCE_ACCESS_URI, instance};
    const LV2_Feature parentFeature{LV2_UI__parent, reinterpret_cast<void*> (parent)};
    const LV2_Feature* uiFeatures[] = {&mapFeature, &access, &parentFeature, &optionsFeature,
                                       nullptr};
    for (int i = 0; i < 20; ++i)
    {
        LV2UI_Widget widget = nullptr;
        LV2UI_Handle handle = ui->instantiate (
            ui, plugin->URI, bundlePath.toRawUTF8(),
            [] (LV2UI_Controller, uint32_t, uint32_t, uint32_t, const void*) {}, nullptr, &widget,
            uiFeatures);
        ASSERT_NE (handle, nullptr) << "opening " << i;
        EXPECT_NE (widget, nullptr);
        ui->cleanup (handle);
    }
    plugin->cleanup (instance);
    XDestroyWindow (display, parent);
    XCloseDisplay (display);
    // The library stays loaded: JUCE's statics in it outlive the last instance.
}

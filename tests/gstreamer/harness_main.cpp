// The built plug-in and no other, in a registry of the build: the user's is left alone.
#include <cstdlib>
#include <gst/gst.h>
#include <gtest/gtest.h>

int main(int count, char** arguments) {
    setenv("GST_PLUGIN_PATH", PLUGIN_FOLDER, 1);
    setenv("GST_PLUGIN_SYSTEM_PATH", "", 1);
    setenv("GST_REGISTRY", REGISTRY_FILE, 1);
    gst_init(nullptr, nullptr);
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}

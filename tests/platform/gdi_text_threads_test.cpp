// Fonts shared between threads: each thread draws into its own memory
// context with one font that all of them select, while the owner deletes the
// font mid-way (the deletion waits for the last selection to end). Run under
// ThreadSanitizer; every thread must see exactly its own picture.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ncodecbase/gdi_text.h"

namespace {

using namespace nplat;

TEST(GdiThreads, SharedFontDrawsTheSamePictureOnEveryThread) {
    HFONT font = CreateFontW(-8, 0, 0, 0, FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
    ASSERT_NE(font, nullptr);
    constexpr int kThreads = 4, kRounds = 200, kWidth = 40, kHeight = 16;
    std::atomic<int> selected{0};
    std::vector<int> inkCounts(kThreads, -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            HDC dc = CreateCompatibleDC(nullptr);
            HBITMAP bitmap = CreateBitmap(kWidth, kHeight, 1, 32, nullptr);
            HGDIOBJ oldBitmap = SelectObject(dc, bitmap);
            HGDIOBJ oldFont = SelectObject(dc, font);
            selected.fetch_add(1);
            SetTextColor(dc, RGB(255, 255, 255));
            SetBkMode(dc, TRANSPARENT);
            int ink = 0;
            for (int round = 0; round < kRounds; ++round) {
                RECT rect = {0, 0, kWidth, kHeight};
                DrawTextW(dc, u"AB C\nD", -1, &rect, 0);
            }
            BITMAPINFO info = {};
            info.bmiHeader = {
                sizeof(BITMAPINFOHEADER), kWidth, kHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
            std::vector<uint32_t> pixels(kWidth * kHeight);
            GetDIBits(dc, bitmap, 0, kHeight, pixels.data(), &info, DIB_RGB_COLORS);
            for (uint32_t p : pixels) ink += p == 0xFFFFFF;
            inkCounts[t] = ink;
            SelectObject(dc, oldFont);
            SelectObject(dc, oldBitmap);
            DeleteObject(bitmap);
            DeleteDC(dc);
        });
    }
    while (selected.load() < kThreads) std::this_thread::yield();
    EXPECT_EQ(DeleteObject(font), 1);  // released by the last thread to deselect it
    for (auto& thread : threads) thread.join();
    // Four 4x8 box outlines, 20 pixels each.
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(inkCounts[t], 4 * 20) << "thread " << t;
}

}  // namespace

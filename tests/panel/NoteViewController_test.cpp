// The panel controller's message table on the headless view.
#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

class ControllerTest : public ::testing::Test {
protected:
    ControllerTest() : m_controller(std::unique_ptr<INoteTextViewPort>(m_view = new CHeadlessTextView)) {}

    CHeadlessTextView* m_view;
    NoteViewController m_controller;
};

TEST_F(ControllerTest, WholeTextComesWithCrLfOrUnconverted)
{
    m_view->SetText("a\nb\r\nc\rd");
    std::string crlf, raw;
    m_controller.OnReceiveMessage(NOTEUI_GET_TEXT_CRLF, nullptr, &crlf, nullptr);
    m_controller.OnReceiveMessage(NOTEUI_GET_TEXT_RAW, nullptr, &raw, nullptr);
    EXPECT_EQ("a\r\nb\r\nc\r\nd", crlf);
    EXPECT_EQ("a\nb\r\nc\rd", raw);
}

}  // namespace

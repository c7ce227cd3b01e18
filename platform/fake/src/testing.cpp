// Anchor of the test-doubles library; the doubles themselves live beside it.
namespace applogic::testing {}

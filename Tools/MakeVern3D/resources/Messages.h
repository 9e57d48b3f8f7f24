// The converter's messages: each id of the message table (MessageTable.cpp) with the types of
// the values its text takes. The symbol parser's own messages are Parser/ParserMessages.h.
#pragma once

#include "AbstractData/Message.h"

#include <string_view>

inline constexpr Message<> kMessageBanner{1};
inline constexpr Message<> kMessageHelp{2};
inline constexpr Message<> kMessageOptionValueMissing{3};
inline constexpr Message<> kMessageFileCompiled{4};
inline constexpr Message<> kMessageOldVersion{5};
inline constexpr Message<Text> kMessageUnknownMaterialClass{6};
inline constexpr Message<Text> kMessageUnknownMapType{7};
inline constexpr Message<Text> kMessageUnknownMapClass{8};
inline constexpr Message<> kMessageColorVertices{9};
inline constexpr Message<Text, Text> kMessageParentNotFound{10};
inline constexpr Message<Text> kMessageUnknownHelperClass{11};
inline constexpr Message<Text, Text> kMessageForeignNodeName{12};
inline constexpr Message<Text, Text> kMessageUnknownXpType{13};
inline constexpr Message<int32_t, Text> kMessageInvalidMaterialId{14};
inline constexpr Message<Text> kMessageAnimFromMeshNeedsFrames{15};
inline constexpr Message<Text, int32_t> kMessageVertexCountDiffers{16};
inline constexpr Message<Text, Text> kMessageSecondParent{17};
inline constexpr Message<Text> kMessageUnknownOption{18};
inline constexpr Message<> kMessageZeroTimeBase{19};
inline constexpr Message<Text, int32_t> kMessageAnimFromMeshShortFrame{20};
inline constexpr Message<int32_t, int32_t> kMessageMaterialNumberRange{21};
inline constexpr Message<int32_t, int32_t> kMessageListNumberRange{22};
inline constexpr Message<uint32_t> kMessageListsTooLarge{23};
inline constexpr Message<Text, int32_t> kMessageMaterialRefRange{24};
inline constexpr Message<int32_t, Text, int32_t> kMessageCornerRange{25};
inline constexpr Message<Text> kMessageVertexFileShort{26};
inline constexpr Message<Text> kMessageVertexFileLists{27};
// Departures of -compat, each a warning.
inline constexpr Message<Text> kMessageDefaultMaterial{28};
inline constexpr Message<> kMessageFaceNormalsOnly{29};
inline constexpr Message<Text, Text> kMessageNodeFromObject{30};
inline constexpr Message<Text> kMessageNodeFromGroup{31};
inline constexpr Message<Text, Text> kMessageTargetDropped{32};
inline constexpr Message<Text, Text> kMessageParentLater{33};
inline constexpr Message<Text, Text, uint32_t> kMessageSampledTrack{34};
inline constexpr Message<Text> kMessageScaleNotKept{35};
inline constexpr Message<Text, int32_t> kMessageDefaultTiming{36};
inline constexpr Message<> kMessageVersionMissing{37};
inline constexpr Message<> kMessageNoEdgeFlags{38};
// Output beyond the bound of the file's lists.
inline constexpr Message<Text, uint32_t> kMessageRenderMeshTooLarge{40};
inline constexpr Message<Text, uint32_t, uint32_t> kMessageFramesTooLarge{41};
// The weld tolerance.
inline constexpr Message<Text, double, double, double> kMessageWeldToleranceShrunk{42};
inline constexpr Message<Text, double> kMessageWeldToleranceInvalid{43};
inline constexpr Message<Text, uint32_t, uint32_t> kMessageThreadCountInvalid{44};
// -ivertex: names that would reach outside the vertex folder, and files that are not read.
inline constexpr Message<Text> kMessageVertexNameAbsolute{50};
inline constexpr Message<Text> kMessageVertexNameParent{51};
inline constexpr Message<Text> kMessageVertexNameControl{52};
inline constexpr Message<Text> kMessageVertexFileOutside{53};
inline constexpr Message<Text> kMessageVertexFileNotRegular{54};
inline constexpr Message<Text> kMessageVertexFolderMissing{55};
// Departures of -compat for real-world exports, and the messages that keep them readable.
inline constexpr Message<int32_t> kMessageBlocksClosedAtEnd{60};
inline constexpr Message<Text, Text> kMessageNonFiniteValue{61};
inline constexpr Message<Text> kMessageNonFiniteUnused{62};
inline constexpr Message<Text, int32_t> kMessageMaterialWithoutNumber{63};
inline constexpr Message<Text, Text> kMessageSampledTrackOneKey{64};
inline constexpr Message<uint32_t, Text> kMessageMoreOfTheSame{65};
inline constexpr Message<Text> kMessageConvertsWithCompat{66};
// -depfile: the dependency file, written after the last input.
inline constexpr Message<Text, Text> kMessageDependencyNameUnreadable{90};
inline constexpr Message<Text> kMessageDependencyFileFailed{91};
// What the writing of an animated mesh shows as it goes: each frame as the node's sphere takes it
// in, and the frames that the stream leaves out.
inline constexpr Message<int32_t> kMessageFrameProgress{100};
inline constexpr Message<int32_t> kMessageFrameNotSaved{101};

// The words that the count line (kMessageMoreOfTheSame) of a warning that repeats says of the
// `hidden` warnings it stands for; empty for a message that is not counted (Reporter::SayRepeats).
std::string_view RepeatWords(uint32_t messageId, uint32_t hidden);

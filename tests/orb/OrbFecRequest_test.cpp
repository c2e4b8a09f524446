// Hardware FEC id request and response rows, their tables, and reading a
// requested FEC back.
#include "Orb/OrbFecRequest.h"
#include "Orb/OrbInternalL3Types.h"
#include "platform/blip/Blip.h"
#include "platform/pond/Layout.h"
#include "platform/pond/Segment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

namespace {

using namespace Orb;
using Pond::Fib::FecId;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Role = Pond::TableControl::Role;

std::string uniqueBase() {
  static int count = 0;
  return "orbfec-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + "-";
}

HwFecIdRequest request(std::uint64_t fec, double id = 1) {
  HwFecIdRequest r;
  r.key = FecId(fec);
  r.requestType = FecRequestType::normalFec;
  r.hwTunnelId = HwTunnelId{2, 17};
  r.mplsTtlMode = MplsTtlMode::mplsTtlModePipe;
  r.mplsPayloadType = MplsPayloadType::mplsPayloadIpv4;
  r.requestAdjState = true;
  r.requestId = id;
  return r;
}

Pond::Fib::Fec fec4(std::uint64_t id, std::uint32_t vias) {
  Pond::Fib::Fec fec;
  fec.key = FecId(id);
  fec.viaCount = vias;
  for (std::uint32_t i = 0; i < vias; ++i) fec.via[i] = Pond::Fib::Via{0x0a000001u + i, 3, 1, 0, 0, 0};
  return fec;
}

TEST(OrbFecRequestRows, SoftwareOnlyIsRequestTypeOneAlone) {
  HwFecIdRequest r = request(1);
  EXPECT_FALSE(r.isSwOnlyFec());
  r.requestType = FecRequestType::swOnlyFec;
  EXPECT_TRUE(r.isSwOnlyFec());
  r.requestType = static_cast<FecRequestType>(2);
  EXPECT_FALSE(r.isSwOnlyFec());
}

TEST(OrbFecRequestRows, PrintedFormsParseBackAndRequestIdsCount) {
  HwFecIdRequest r = request(5, 2.5);
  EXPECT_EQ(Vex::toStrep(r),
            "Value('Orb::HwFecIdRequest', ** {'key': Value('Pond::Fib::FecId', ** {'value': 5}), 'requestType': "
            "'normalFec', 'hwTunnelId': Value('Orb::HwTunnelId', ** {'tunnelType': 2, 'index': 17}), 'mplsTtlMode': "
            "'mplsTtlModePipe', 'mplsPayloadType': 'mplsPayloadIpv4', 'requestAdjState': True, 'requestId': 2.5})");
  EXPECT_EQ(Vex::fromStrep<HwFecIdRequest>(Vex::toStrep(r)), r);
  HwFecIdRequest other = r;
  other.requestId = 3;
  EXPECT_NE(other, r);  // differ only in the request id
  EXPECT_EQ(HwFecIdRequest(), HwFecIdRequest());

  FecToHwFecId answer{FecId(5), HwFecId(0x1234), AdjacencyState::adjStateForwardingPrimaryVias, 2.5};
  EXPECT_EQ(Vex::toStrep(answer),
            "Value('Orb::FecToHwFecId', ** {'key': Value('Pond::Fib::FecId', ** {'value': 5}), 'hwId': "
            "Value('Orb::HwFecId', ** {'value': 4660}), 'adjState': 'adjStateForwardingPrimaryVias', 'requestId': "
            "2.5})");
  EXPECT_EQ(Vex::fromStrep<FecToHwFecId>(Vex::toStrep(answer)), answer);

  // Rows one after another in memory put the request id off an 8-byte boundary.
  std::vector<FecToHwFecId> answers(3, answer);
  answers[1].requestId = 7.25;
  EXPECT_EQ(double(answers[1].requestId), 7.25);
  EXPECT_EQ(Vex::fromStrep<FecToHwFecId>(Vex::toStrep(answers[1])), answers[1]);

  ObjTupleAndFecId tuple{L2Rib::ObjTuple{1, 9}, FecId(4)};
  EXPECT_EQ(Vex::toStrep(tuple),
            "Value('Orb::ObjTupleAndFecId', ** {'key': Value('L2Rib::ObjTuple', ** {'type': 1, 'id': 9}), 'fecId': "
            "Value('Pond::Fib::FecId', ** {'value': 4})})");
  EXPECT_EQ(Vex::fromStrep<ObjTupleAndFecId>(Vex::toStrep(tuple)), tuple);

  for (const auto& text :
       {Vex::toStrep(FecIdToAdjSyncId{FecId(3), AdjSyncId(8)}), Vex::toStrep(SyncRequestsReady{ReadyBool(true)}),
        Vex::toStrep(FecToL2IntfId{FecId(3), Nexo::IntfId("Ethernet4")})})
    EXPECT_THAT(text, HasSubstr("Value('Orb::"));
  EXPECT_EQ(Vex::toStrep(SyncRequestsReady{ReadyBool(true)}),
            "Value('Orb::SyncRequestsReady', ** {'ready': Value('Orb::ReadyBool', ** {'value': True})})");
  FecToL2IntfId l2{FecId(3), Nexo::IntfId("Ethernet4")};
  EXPECT_EQ(Vex::fromStrep<FecToL2IntfId>(Vex::toStrep(l2)), l2);
  EXPECT_THROW(Vex::fromStrep<HwFecIdRequest>("Value('Orb::HwFecIdRequest', ** {'requestType': 'bigFec'})"),
               Vex::ParseError);
}

TEST(OrbFecRequestRows, TheLayerKeepsWhichSourcesAskForAndAnswerEachFec) {
  auto internal = orbInternalL3StatusFactory("internal");
  FecIdToRequestSourceMapping mapping;
  mapping.requestSource = {FecRequestSource::fecRequestPwLocal, FecRequestSource::fecRequestEvpn};
  mapping.responseSource = {FecRequestSource::fecRequestEvpn};
  internal->fecIdToRequestSourceMapIs(Pond::Fib::GlobalFecId(12), mapping);
  EXPECT_EQ(internal->fecIdToRequestSourceMap(Pond::Fib::GlobalFecId(12)), mapping);
  EXPECT_EQ(Vex::toStrep(mapping),
            "Value('Orb::FecIdToRequestSourceMapping', ** {'requestSource': ['fecRequestEvpn', 'fecRequestPwLocal'], "
            "'responseSource': ['fecRequestEvpn']})");
  EXPECT_EQ(Vex::fromStrep<FecIdToRequestSourceMapping>(Vex::toStrep(mapping)), mapping);
}

// Records what a request entity notifies, in order.
class Recorder : public FecIdToHwFecIdRequest::Notifiee {
 public:
  using FecIdToHwFecIdRequest::Notifiee::Notifiee;
  std::vector<std::string> seen;
  void handleFec(const FecId& key) override { seen.push_back("fec " + std::to_string(key.value())); }
  void handleHwFecIdRequest(const FecId& key) override { seen.push_back("request " + std::to_string(key.value())); }
  void handleHwFecIdRequestMountStatus() override { seen.push_back("request mount"); }
  void handleHwFecIdRequestQuiesced(bool q) override { seen.push_back(q ? "request quiesced" : "request busy"); }
};

struct Requester {
  std::string base = uniqueBase();
  Vex::Ptr<FecIdToHwFecIdRequest> writer = fecIdToHwFecIdRequestFactory("mpls");
  Vex::Ptr<FecIdToHwFecIdRequest> reader = fecIdToHwFecIdRequestFactory("mpls");
  std::vector<std::string> problems;
  Requester() {
    std::string prefix = fecRequestPrefix(base, FecRequestSource::fecRequestMpls, false);
    writer->controlIs(prefix, Role::writer, 16);
    reader->corruptionHandlerIs([this](const std::string& m) { problems.push_back(m); });
    reader->controlIs(prefix, Role::reader);
  }
};

TEST(OrbFecRequestTables, ARequesterAddsTheFecFirstAndWithdrawsItLast) {
  Requester r;
  Recorder onWriter(r.writer);
  Recorder onReader(r.reader);
  EXPECT_EQ(r.reader->hwFecIdRequestMountStatus(), Pond::MountStatus::mounted);
  onReader.seen.clear();  // the mount reports

  EXPECT_EQ(r.reader->hwFecIdRequest(FecId(7)), HwFecIdRequest());
  ASSERT_TRUE(addFecRequest(*r.writer, fec4(7, 2), request(7)));
  EXPECT_THAT(onWriter.seen, ElementsAre("fec 7", "request 7"));
  EXPECT_EQ(r.reader->hwFecIdRequest(FecId(7)), request(7));
  EXPECT_EQ(r.reader->fec(FecId(7)), fec4(7, 2));

  withdrawFecRequest(*r.writer, FecId(7));
  EXPECT_THAT(onWriter.seen, ElementsAre("fec 7", "request 7", "request 7", "fec 7"));
  EXPECT_FALSE(r.reader->hwFecIdRequestHas(FecId(7)));
  EXPECT_FALSE(r.reader->fecHas(FecId(7)));

  r.reader->fecProcessChanges();
  r.reader->hwFecIdRequestProcessChanges();
  EXPECT_THAT(onReader.seen, ElementsAre("fec 7", "fec 7", "request 7", "request 7"));
}

TEST(OrbFecRequestTables, WritesNotifyOnlyChangesAndReadersHearThemThroughTheLog) {
  Requester r;
  Recorder onWriter(r.writer);
  Recorder onReader(r.reader);
  onReader.seen.clear();
  r.writer->hwFecIdRequestIs(request(1));
  r.writer->hwFecIdRequestIs(request(1));  // unchanged: nobody hears it
  r.writer->hwFecIdRequestIs(request(1, 2));
  r.writer->hwFecIdRequestCommit(request(1, 2));
  r.writer->hwFecIdRequestIs(request(2));
  EXPECT_THAT(onWriter.seen, ElementsAre("request 1", "request 1", "request 1", "request 2"));
  EXPECT_EQ(r.reader->hwFecIdRequest(FecId(1)).requestId, 2);

  r.writer->hwFecIdRequestQuiescedIs(true);
  r.writer->hwFecIdRequestDelAll();
  r.reader->hwFecIdRequestProcessChanges();
  EXPECT_THAT(onReader.seen, ElementsAre("request 1", "request 1", "request 1", "request 2", "request 1", "request 2",
                                         "request quiesced"));
  EXPECT_EQ(r.reader->hwFecIdRequestSize(), 0u);

  r.writer->hwFecIdRequestTable().close();
  onReader.seen.clear();
  r.reader->hwFecIdRequestProcessChanges();
  EXPECT_THAT(onReader.seen, ElementsAre("request mount"));
  EXPECT_EQ(r.reader->hwFecIdRequestMountStatus(), Pond::MountStatus::unmounted);
}

TEST(OrbFecRequestTables, OtherTablesKeyByTheirOwnFields) {
  Requester r;
  r.writer->objTupleToFecIdIs(ObjTupleAndFecId{L2Rib::ObjTuple{2, 40}, FecId(9)});
  EXPECT_EQ(r.reader->objTupleToFecId(L2Rib::ObjTuple{2, 40}).fecId, FecId(9));
  EXPECT_FALSE(r.reader->objTupleToFecIdHas(L2Rib::ObjTuple{1, 40}));
  r.writer->adjSyncIdMapIs(FecIdToAdjSyncId{FecId(9), AdjSyncId(77)});
  EXPECT_EQ(r.reader->adjSyncIdMap(FecId(9)).adjSyncId, AdjSyncId(77));
  EXPECT_TRUE(r.writer->syncRequestsReadyIs(SyncRequestsReady{ReadyBool(true)}));
  EXPECT_FALSE(r.writer->syncRequestsReadyIs(SyncRequestsReady{ReadyBool(false)}));  // one row at most
  EXPECT_TRUE(r.reader->syncRequestsReadyHas(ReadyBool(true)));

  auto responses = fecIdToHwFecIdResponseFactory("mpls");
  auto answers = fecIdToHwFecIdResponseFactory("mpls");
  std::string prefix = fecRequestPrefix(r.base, FecRequestSource::fecRequestMpls, true);
  responses->controlIs(prefix, Role::writer);
  answers->controlIs(prefix, Role::reader);
  FecToHwFecId answer{FecId(9), HwFecId(500), AdjacencyState::adjStateArpRequired, 4.5};
  responses->hwFecIdIs(answer);
  responses->l2IntfIdIs(FecToL2IntfId{FecId(9), Nexo::IntfId("Ethernet2")});
  EXPECT_EQ(answers->hwFecId(FecId(9)), answer);
  EXPECT_EQ(answers->l2IntfId(FecId(9)).l2IntfId, Nexo::IntfId("Ethernet2"));
}

TEST(OrbFecRequestTables, TheLastReferenceRunsTheZeroReferenceNotifiee) {
  int gone = 0;
  {
    auto requests = fecIdToHwFecIdRequestFactory("pw");
    auto responses = fecIdToHwFecIdResponseFactory("pw");
    requests->onZeroReferencesIs([&] { ++gone; });
    responses->onZeroReferencesIs([&] { ++gone; });
    auto again = requests;
    again = nullptr;
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 2);
}

TEST(OrbFecRequestLoad, StatusSaysWhetherTheRequesterAndTheFecAreThere) {
  Requester r;
  auto all = Vex::make<AllFecIdToHwFecIdRequestResponse>("all");
  FecReadData out;
  loadHwFecIdRequestFec<IPv4>(FecId(7), FecRequestSource::fecRequestMpls, *all, out);
  EXPECT_EQ(out.status, 1u);

  all->requestCollectionIs(FecRequestSource::fecRequestMpls, r.reader);
  loadHwFecIdRequestFec<IPv4>(FecId(7), FecRequestSource::fecRequestMpls, *all, out);
  EXPECT_EQ(out.status, 2u);
  EXPECT_EQ(out.fecType, FecType::fecTypeIpv4);

  addFecRequest(*r.writer, fec4(7, 3), request(7));
  loadHwFecIdRequestFec<IPv4>(FecId(7), FecRequestSource::fecRequestMpls, *all, out);
  EXPECT_EQ(out.status, 3u);
  EXPECT_EQ(out.fec, fec4(7, 3));

  Pond::Fib6::Fec six;
  six.key = FecId(8);
  six.viaCount = 1;
  six.via[0].hop[15] = 1;
  addFecRequest(*r.writer, six, request(8));
  FecReadData out6;
  loadHwFecIdRequestFec<IPv6>(FecId(8), FecRequestSource::fecRequestMpls, *all, out6);
  EXPECT_EQ(out6.status, 3u);
  EXPECT_EQ(out6.fecType, FecType::fecTypeIpv6);
  EXPECT_EQ(out6.fec6, six);
  loadHwFecIdRequestFec<IPv6>(FecId(7), FecRequestSource::fecRequestMpls, *all, out6);
  EXPECT_EQ(out6.status, 2u);  // an IPv4 FEC is not an IPv6 one
  EXPECT_TRUE(r.problems.empty());
}

TEST(OrbFecRequestLoad, ACorruptRowIsReportedAndReadsAsNotFound) {
  Requester r;
  auto all = Vex::make<AllFecIdToHwFecIdRequestResponse>("all");
  all->requestCollectionIs(FecRequestSource::fecRequestMpls, r.reader);
  addFecRequest(*r.writer, fec4(3, 1), request(3));
  // Scribble on the state word of FEC 3's slot (its home slot: keys below
  // 2^17 sit in their own slot when nothing collides).
  auto raw = Pond::Segment::open("/" + fecRequestPrefix(r.base, FecRequestSource::fecRequestMpls, false) + "fec");
  auto* header = static_cast<Pond::Layout::Header*>(raw.base());
  auto* slot = static_cast<unsigned char*>(raw.base()) + header->slotsOffset + 3 * header->slotStride;
  Pond::Layout::store<std::uint32_t>(slot + 4, 99);
  FecReadData out;
  loadHwFecIdRequestFec<IPv4>(FecId(3), FecRequestSource::fecRequestMpls, *all, out);
  EXPECT_EQ(out.status, 2u);
  ASSERT_EQ(r.problems.size(), 1u);
  EXPECT_THAT(r.problems[0], HasSubstr("fecRequestMpls-request-fec: row slot 3 has state 99"));
}

TEST(OrbPwEncapFecRequester, AGroupsEncapsulationIsRequestedUnderItsFecTracedAndAnsweredBack) {
  Requester r;
  auto responses = fecIdToHwFecIdResponseFactory("pwLocal");
  responses->controlIs(r.base + "answers-", Role::writer, 16);
  PwEncapFecRequester requester(r.writer, responses);
  auto traces = std::make_shared<Blip::CaptureSink>();
  Blip::sinkIs(traces);
  Blip::handle("OrbFecRequest").levelIs(9);
  PwAdjGroupId group(12);
  auto encap = EncapFecId::forGroup(group);
  EXPECT_EQ(encap.adjIndex(), 12u);
  ASSERT_TRUE(requester.addRequest(group, encap, fec4(0, 1), 4));
  EXPECT_EQ(r.reader->fec(encap.fecId()).viaCount, 1u);  // keyed by the encapsulation FEC
  EXPECT_TRUE(r.reader->hwFecIdRequest(encap.fecId()).requestAdjState);
  EXPECT_EQ(requester.hwFecId(encap), HwFecId());  // not answered yet
  responses->hwFecIdIs(FecToHwFecId{encap.fecId(), HwFecId(77), AdjacencyState::adjStateDrop, 4.0});
  EXPECT_EQ(requester.hwFecId(encap), HwFecId(77));
  requester.deleteRequest(group, encap);
  Blip::handle("OrbFecRequest").levelIs(0);
  Blip::sinkIs(nullptr);
  EXPECT_FALSE(r.reader->hwFecIdRequestHas(encap.fecId()));
  EXPECT_FALSE(r.reader->fecHas(encap.fecId()));
  EXPECT_TRUE(traces->contains(" add FecId request pwAdjGroupId: 12 encapFecId: 1099511627788"));
  EXPECT_TRUE(traces->contains(" delete FecId request pwAdjGroupId: 12 encapFecId: 1099511627788"));
}

TEST(OrbPwEncapFecRequesterDeathTest, ARequestTwiceAMissingOneOrAnotherGroupsFecStops) {
  Requester r;
  PwEncapFecRequester requester(r.writer, nullptr);
  PwAdjGroupId group(3);
  auto encap = EncapFecId::forGroup(group);
  EXPECT_DEATH(requester.deleteRequest(group, encap),
               "localPortToHwFecIdRequest\\(\\)->hwFecIdRequest\\( requestedFecId \\) != Orb::HwFecIdRequest\\(\\)");
  EXPECT_DEATH(requester.addRequest(PwAdjGroupId(4), encap, fec4(0, 1), 1),
               "encapFecId.adjIndex\\(\\) == pwAdjGroupId.value\\(\\)");
  ASSERT_TRUE(requester.addRequest(group, encap, fec4(0, 1), 1));
  EXPECT_DEATH(requester.addRequest(group, encap, fec4(0, 1), 2),
               "localPortToHwFecIdRequest\\(\\)->hwFecIdRequest\\( fecId \\) == Orb::HwFecIdRequest\\(\\)");
}

}  // namespace

// Reads fuzz input as a daemon recording, merging, reading and releasing OTT
// transactions on a few flows and sessions over one pool, and checks every
// step against a brute-force oracle: flows hold exactly what was recorded,
// session lists are sorted disjoint intervals covering the union of the valid
// finished transactions with their summed payload, and every node is either
// free or on exactly one list. Shared by the libFuzzer target and the
// regression test.
#ifndef ORVANE_TESTS_OTT_FUZZ_DRIVER_HPP
#define ORVANE_TESTS_OTT_FUZZ_DRIVER_HPP

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "list_walk.hpp"
#include "orvane_ott.h"
#include "webpage_fuzz_driver.hpp"

namespace orvane_fuzz {

class OttProgram {
public:
    static constexpr int kFlows = 4;
    static constexpr int kSessions = 3;
    static constexpr size_t kMaxSteps = 4000;

    std::string Run(const uint8_t *data, size_t size)
    {
        ByteReader in(data, size);
        static constexpr uint32_t kPoolSizes[8] = {1, 2, 3, 5, 8, 16, 40, 64};
        const uint8_t h = in.U8();
        poolSize_ = kPoolSizes[h & 7];
        pool_ = PoolOf(h & 7, poolSize_);
        const uint32_t savedLevel = g_enSDKLogLevel;
        g_enSDKLogLevel = (h & 0x80) ? LOG_LEVEL_TRACE : LOG_LEVEL_ERROR;
        API_InitSDKLog(OnLog);
        if (pool_ == nullptr || GetFreeNodeNum(pool_) != poolSize_) {
            g_funcDaemonSDKLog = nullptr;
            g_enSDKLogLevel = savedLevel;
            return "pool set-up failed";
        }
        for (STOttFlow &f : flows_) {
            API_InitOTTTransSpeedFlow(&f);
        }
        for (STOttSession &s : sessions_) {
            API_InitOTTTransSpeedSession(&s);
        }
        for (size_t step = 0; err_.empty() && !in.Done() && step < kMaxSteps; ++step) {
            Step(in);
            if (err_.empty()) {
                CheckAll();
            }
        }
        for (STOttFlow &f : flows_) {
            API_OTTTransRlease(pool_, &f);
        }
        for (STOttSession &s : sessions_) {
            API_OTTTransRlease(pool_, &s);
        }
        if (err_.empty() && GetFreeNodeNum(pool_) != poolSize_) {
            Fault("pool not full after releasing every record");
        }
        if (err_.empty() && !Rec().error.empty()) {
            Fault(Rec().error);
        }
        g_funcDaemonSDKLog = nullptr;
        g_enSDKLogLevel = savedLevel;
        Rec() = Recorder();
        return err_;
    }

private:
    struct Trans {
        uint64_t begin, end;
        uint32_t payload;
        uint8_t dir, state;
    };
    using Interval = std::pair<uint64_t, uint64_t>;
    struct Direction {
        std::vector<Interval> merged;  // every valid finished transaction since the last read
        uint64_t payload = 0;
    };

    CMemPool *pool_ = nullptr;
    uint32_t poolSize_ = 0;
    STOttFlow flows_[kFlows] = {};
    STOttSession sessions_[kSessions] = {};
    std::vector<Trans> flowModel_[kFlows];
    Direction sessionModel_[kSessions][2];
    std::string err_;

    void Fault(const std::string &what)
    {
        if (err_.empty()) {
            err_ = what;
        }
    }

    // The facility never frees a pool handle, and a daemon keeps its pool for
    // its lifetime: one pool per size serves every input, full between inputs.
    static CMemPool *PoolOf(uint8_t slot, uint32_t size)
    {
        static CMemPool *pools[8];  // plain pointers: still reachable when the process ends
        CMemPool *&pool = pools[slot];
        if (pool == nullptr) {
            uint32_t flowSize = 0;
            uint32_t sessionSize = 0;
            pool = API_InitOTTTransSpeed(size, &flowSize, &sessionSize);
            if (flowSize != sizeof(STOttFlow) || sessionSize != sizeof(STOttSession)) {
                return nullptr;
            }
        }
        return pool;
    }

    uint32_t NodesOnLists() const
    {
        uint32_t n = 0;
        for (const STOttFlow &f : flows_) {
            n += f.stTransList.uiNodeNum;
        }
        for (const STOttSession &s : sessions_) {
            n += s.stUpTransList.uiNodeNum + s.stDwTransList.uiNodeNum;
        }
        return n;
    }

    static Trans ReadTrans(ByteReader &in)
    {
        static constexpr uint8_t kDirs[8] = {1, 1, 2, 2, 1, 2, 0, 3};
        static constexpr uint8_t kStates[4] = {2, 2, 1, 0};
        const uint8_t b = in.U8();
        Trans t{};
        t.dir = kDirs[b & 7];
        t.state = kStates[(b >> 3) & 3];
        switch (b >> 5) {
        case 5:  // begin 0 stops the speed sum
            t.begin = 0;
            t.end = in.U8() * 10ull;
            break;
        case 6:
            t.begin = in.U64();
            t.end = in.U64();
            break;
        case 7:  // begin not below end
            t.end = 10 + in.U8() * 10ull;
            t.begin = t.end + in.U8();
            break;
        default:  // a small grid, so that stamps meet, touch and overlap
            t.begin = 10 + in.U8() * 10ull;
            t.end = t.begin + in.U8() * 10ull;
            break;
        }
        t.payload = in.U16();
        return t;
    }

    void Step(ByteReader &in)
    {
        const uint8_t op = in.U8();
        switch (op & 7) {
        case 0:
        case 1:
        case 2:
            Process(in, op);
            break;
        case 3:
        case 4: {
            const int f = (op >> 3) % kFlows;
            const int s = (op >> 5) % kSessions;
            Merge(f, s);
            break;
        }
        case 5:
            Speed((op >> 3) % kSessions);
            break;
        case 6:
            Release(op >> 3);
            break;
        default:
            Misuse(op >> 3);
            break;
        }
    }

    void Process(ByteReader &in, uint8_t op)
    {
        static constexpr uint8_t kNums[4] = {1, 2, 2, 0};
        const int f = (op >> 3) % kFlows;
        STOttTransInput input{};
        input.ucTransNum = kNums[(op >> 5) & 3];
        if (input.ucTransNum == 0 && (op >> 7)) {
            input.ucTransNum = 3;
        }
        const int n = input.ucTransNum == 3 ? 2 : input.ucTransNum;
        Trans t[2] = {};
        for (int i = 0; i < (n == 0 ? 1 : n); ++i) {
            t[i] = ReadTrans(in);
            STOttTrans &o = input.astTrans[i];
            o.ullBeginTime = t[i].begin;
            o.ullEndTime = t[i].end;
            o.uiPayLoad = t[i].payload;
            o.ucDirection = t[i].dir;
            o.ucState = t[i].state;
        }
        const uint32_t free = poolSize_ - NodesOnLists();
        const uint32_t rc = API_OTTTransProcess(&input, pool_, &flows_[f]);
        uint32_t expected = OTT_RET_PARAM;
        if (input.ucTransNum == 1 || input.ucTransNum == 2) {
            const uint32_t fits = std::min<uint32_t>(free, input.ucTransNum);
            for (uint32_t i = 0; i < fits; ++i) {
                flowModel_[f].push_back(t[i]);
            }
            expected = fits == input.ucTransNum ? OTT_RET_OK : OTT_RET_NOTHING;
        }
        if (rc != expected) {
            Fault("API_OTTTransProcess answered " + std::to_string(rc) + ", expected " + std::to_string(expected));
        }
    }

    void Merge(int f, int s)
    {
        const bool empty = flowModel_[f].empty();
        const uint32_t rc = API_OTTTransMerge(pool_, &sessions_[s], &flows_[f]);
        if (rc != (empty ? OTT_RET_NOTHING : OTT_RET_OK)) {
            Fault("API_OTTTransMerge answered " + std::to_string(rc));
        }
        for (const Trans &t : flowModel_[f]) {
            if (t.state != OTT_STATE_OVER) {
                continue;  // dropped
            }
            if (t.dir != OTT_DIRECTION_UP && t.dir != OTT_DIRECTION_DOWN) {
                break;  // ends the merge; the rest is dropped
            }
            if (t.begin < t.end) {
                Direction &d = sessionModel_[s][t.dir - 1];
                d.merged.emplace_back(t.begin, t.end);
                d.payload += t.payload;
            }
        }
        flowModel_[f].clear();
    }

    // Sums the union of the oracle's intervals.
    static uint64_t UnionLength(std::vector<Interval> v)
    {
        std::sort(v.begin(), v.end());
        uint64_t total = 0;
        uint64_t curB = 0;
        uint64_t curE = 0;
        bool open = false;
        for (const Interval &i : v) {
            if (open && i.first <= curE) {
                curE = std::max(curE, i.second);
                continue;
            }
            if (open) {
                total += curE - curB;
            }
            curB = i.first;
            curE = i.second;
            open = true;
        }
        return open ? total + (curE - curB) : total;
    }

    static std::vector<Interval> Canonical(std::vector<Interval> v)
    {
        std::sort(v.begin(), v.end());
        std::vector<Interval> out;
        for (const Interval &i : v) {
            if (!out.empty() && i.first <= out.back().second) {
                out.back().second = std::max(out.back().second, i.second);
            } else {
                out.push_back(i);
            }
        }
        return out;
    }

    void Speed(int s)
    {
        uint64_t expected[4] = {};
        for (int d = 0; d < 2; ++d) {
            const STTranManage &list = d == 0 ? sessions_[s].stUpTransList : sessions_[s].stDwTransList;
            const Direction &m = sessionModel_[s][d];
            if (list.pstHead == nullptr) {
                continue;
            }
            const STOttTransNode *head = reinterpret_cast<const STOttTransNode *>(list.pstHead);
            if (head->ullBeginTime == 0) {  // the read stops at once
                expected[2 * d] = head->uiPayLoad;
            } else {
                expected[2 * d] = m.payload;
                expected[2 * d + 1] = UnionLength(m.merged);
            }
        }
        uint64_t got[4] = {1, 1, 1, 1};
        const uint32_t rc = API_OTTTransSpeed(pool_, &sessions_[s], &got[0], &got[1], &got[2], &got[3]);
        if (rc != OTT_RET_OK || !std::equal(got, got + 4, expected)) {
            Fault("API_OTTTransSpeed: up " + std::to_string(got[0]) + "/" + std::to_string(got[1]) + " expected " +
                  std::to_string(expected[0]) + "/" + std::to_string(expected[1]) + ", down " +
                  std::to_string(got[2]) + "/" + std::to_string(got[3]) + " expected " +
                  std::to_string(expected[2]) + "/" + std::to_string(expected[3]));
        }
        sessionModel_[s][0] = Direction();
        sessionModel_[s][1] = Direction();
    }

    void Release(uint8_t which)
    {
        const int k = which % (kFlows + kSessions + 1);
        uint32_t rc = 0;
        uint32_t expected = OTT_RET_OK;
        if (k < kFlows) {
            rc = API_OTTTransRlease(pool_, &flows_[k]);
            flowModel_[k].clear();
        } else if (k < kFlows + kSessions) {
            rc = API_OTTTransRlease(pool_, &sessions_[k - kFlows]);
            sessionModel_[k - kFlows][0] = Direction();
            sessionModel_[k - kFlows][1] = Direction();
        } else {
            STOttSession other{};
            other.ucType = 7;
            rc = API_OTTTransRlease(pool_, &other);
            expected = OTT_RET_PARAM;
        }
        if (rc != expected) {
            Fault("API_OTTTransRlease answered " + std::to_string(rc));
        }
    }

    void Misuse(uint8_t which)
    {
        STOttTransInput input{};
        input.ucTransNum = 1;
        uint64_t v[4];
        bool bad = false;
        switch (which & 7) {
        case 0:
            bad = API_OTTTransProcess(nullptr, pool_, &flows_[0]) != OTT_RET_PARAM ||
                  API_OTTTransProcess(&input, nullptr, &flows_[0]) != OTT_RET_PARAM ||
                  API_OTTTransProcess(&input, pool_, nullptr) != OTT_RET_PARAM;
            break;
        case 1:
            bad = API_OTTTransMerge(nullptr, &sessions_[0], &flows_[0]) != OTT_RET_PARAM ||
                  API_OTTTransMerge(pool_, nullptr, &flows_[0]) != OTT_RET_PARAM ||
                  API_OTTTransMerge(pool_, &sessions_[0], nullptr) != OTT_RET_PARAM;
            break;
        case 2:
            bad = API_OTTTransSpeed(pool_, nullptr, &v[0], &v[1], &v[2], &v[3]) != OTT_RET_PARAM ||
                  API_OTTTransSpeed(pool_, &sessions_[0], &v[0], nullptr, &v[2], &v[3]) != OTT_RET_PARAM;
            break;
        case 3:
            bad = API_OTTTransRlease(nullptr, &flows_[0]) != OTT_RET_PARAM ||
                  API_OTTTransRlease(pool_, nullptr) != OTT_RET_PARAM ||
                  API_InitOTTTransSpeed(0, nullptr, nullptr) != nullptr;
            break;
        case 4:
            bad = FindFirstOverTrans(nullptr) != nullptr || AllocateOttTransNodeMem(nullptr) != nullptr ||
                  CreateOTTTransListNode(nullptr) != nullptr;
            FreeOttTransNode(pool_, nullptr, &flows_[0].stTransList);
            API_InitOTTTransSpeedFlow(nullptr);
            API_InitOTTTransSpeedSession(nullptr);
            break;
        default:  // the dumps read what they are given and change nothing
            for (const STOttFlow &f : flows_) {
                PrintOTTTrans(&f.stTransList);
                PrintFlowTrans(&f);
            }
            for (const STOttSession &s : sessions_) {
                PrintSessionTrans(&s);
                PrintMemPool(&s, pool_);
            }
            PrintInputTransInfo(&input);
            PrintFlowTrans(nullptr);
            PrintSessionTrans(nullptr);
            PrintMemPool(nullptr, pool_);
            break;
        }
        if (bad) {
            Fault("OTT misuse not refused, case " + std::to_string(which & 7));
        }
    }

    void CheckAll()
    {
        if (!Rec().error.empty()) {
            Fault(Rec().error);
            return;
        }
        const std::string pool = orvane_check::CheckPool(*pool_, poolSize_, "ott");
        if (!pool.empty() || pool_->m_uiUsedNodeNum != NodesOnLists()) {
            Fault("OTT pool: " + pool + " used " + std::to_string(pool_->m_uiUsedNodeNum) + ", on lists " +
                  std::to_string(NodesOnLists()));
            return;
        }
        for (int f = 0; f < kFlows && err_.empty(); ++f) {
            CheckFlow(f);
        }
        for (int s = 0; s < kSessions && err_.empty(); ++s) {
            CheckSessionList(sessions_[s].stUpTransList, sessionModel_[s][0], OTT_DIRECTION_UP);
            CheckSessionList(sessions_[s].stDwTransList, sessionModel_[s][1], OTT_DIRECTION_DOWN);
        }
    }

    void CheckFlow(int f)
    {
        const STTranManage &list = flows_[f].stTransList;
        if (orvane_check::CountLinked(list) != flowModel_[f].size()) {
            Fault("flow list does not hold what was recorded");
            return;
        }
        size_t i = 0;
        orvane::WalkList(&list, [&](STTranNode *node) {
            const STOttTransNode *n = reinterpret_cast<const STOttTransNode *>(node);
            const Trans &t = flowModel_[f][i++];
            if (n->ullBeginTime != t.begin || n->ullEndTime != t.end || n->uiPayLoad != t.payload ||
                n->ucDirection != t.dir || n->ucState != t.state) {
                Fault("flow list out of arrival order or altered");
            }
            return !err_.empty();
        });
    }

    void CheckSessionList(const STTranManage &list, const Direction &m, uint8_t dir)
    {
        if (orvane_check::CountLinked(list) == UINT32_MAX) {
            Fault("session list broken");
            return;
        }
        std::vector<Interval> got;
        uint64_t payload = 0;
        orvane::WalkList(&list, [&](STTranNode *node) {
            const STOttTransNode *n = reinterpret_cast<const STOttTransNode *>(node);
            if (n->ullBeginTime >= n->ullEndTime || (!got.empty() && n->ullBeginTime < got.back().second)) {
                Fault("session list not sorted or overlapping at [" + std::to_string(n->ullBeginTime) + "," +
                      std::to_string(n->ullEndTime) + "]");
            } else if (n->ucDirection != dir || n->ucState != OTT_STATE_OVER) {
                Fault("session list holds a node of the other direction or unfinished");
            }
            got.emplace_back(n->ullBeginTime, n->ullEndTime);
            payload += n->uiPayLoad;
            return !err_.empty();
        });
        if (err_.empty() && (Canonical(got) != Canonical(m.merged) || payload != m.payload)) {
            Fault("session list is not the union of its transactions: " + std::to_string(got.size()) +
                  " nodes, payload " + std::to_string(payload) + " expected " + std::to_string(m.payload));
        }
    }
};

inline std::string RunOttProgram(const uint8_t *data, size_t size)
{
    OttProgram program;
    return program.Run(data, size);
}

}  // namespace orvane_fuzz

#endif

// A budget on the allocations of the test executable, to drive every out-of-memory path: while
// a budget is set, the global operator new (replaced by the support library) throws
// std::bad_alloc once the budget is spent.
#pragma once

#include <new>

namespace rytest {

/// Limits the allocations of the enclosing scope to `budget`; unlimited again on leaving it.
class AllocationBudget {
public:
    explicit AllocationBudget(long budget);
    ~AllocationBudget();
    AllocationBudget(const AllocationBudget&) = delete;
    AllocationBudget& operator=(const AllocationBudget&) = delete;
};

/// Runs `call` with budgets 0, 1, 2, ... until it no longer throws std::bad_alloc; after every
/// failure runs `after(budget)`. Returns how many budgets failed, or -1 when `call` still
/// failed with `limit` allocations.
template <class Call, class After>
int sweepAllocationBudgets(Call call, After after, int limit = 100000) {
    int failures = 0;
    for (int budget = 0; budget < limit; ++budget) {
        bool threw = false;
        {
            AllocationBudget scope(budget);
            try {
                call();
            } catch (const std::bad_alloc&) {
                threw = true;
            }
        }
        if (!threw) return failures;
        ++failures;
        after(budget);
    }
    return -1;
}

}  // namespace rytest

#pragma once
// CLeastSq: the least-squares engine behind every estimator of the library.
//
// A caller states a linear (or linearised) problem as observation equations, one row per
// observation: the coefficients of the n unknowns in columns 0..n-1 and the observed term in
// column n. Each row has a weight (default 1.0). A solver forms the normal equations
// N = A^T W A, b = A^T W l, solves N x = b and leaves the corrections x in Bcor, the inverse of
// N in the covariance and, for the root-free solver, the variance of unit weight in sigma.
// Iterating a non-linear problem is the caller's business: InitObeq, InitNoeq, InitBcor, fill
// the rows again around the new estimate, solve again.
//
// Calling protocol: SetObeq(0, a0) starts a new equation; SetObeq(j, aj) fills the others and
// SetObeq(n, l) the observed term; SetWeight(w) weighs the current equation. An engine
// created for m equations grows by one when an (m+1)-th is started.
//
// Every failure writes one trace line and returns 0. An index out of range of the arrays is
// the arrays' fatal error, so the accessors take valid indexes only.
#include <cstdint>

#include "geometry/KelArray.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/Types.h"

class KELSCAN_API CLeastSq {
public:
    KEL_DECLARE_ALLOCATOR

    // Ten times the smallest normal double: the default pivot tolerance.
    static constexpr double kDefaultEps = 2.2250738585072014e-307;

    CLeastSq();
    // n unknowns, one equation to start with; more are added on the fly by SetObeq.
    explicit CLeastSq(int n);
    CLeastSq(int m, int n);
    virtual ~CLeastSq();

    // Sizes the engine for m equations and n unknowns; arrays zeroed, weights 1.0. Returns 1.
    int Create(int m, int n);

    // No current equation, times cleared (the coefficients stay).
    void InitObeq();
    int InitNoeq();
    int InitBcor();
    int InitParameter(kel_templ::CKelArray<double, double>& a, double v);

    // Column col of the current equation; col == 0 starts a new equation.
    int SetObeq(int col, double v);
    // Weight of the current equation (0 with no current equation) or of equation e.
    int SetWeight(double w);
    int SetWeight(int e, double w);
    // Advances to the next equation without writing, growing the engine by one equation when
    // needed. Out of memory: one line ("CMemoryException"), and the next call retries the
    // same equation.
    void IncrementColumn();

    // Root-free LDL^T solve of the symmetric normal equations, with inverse and sigma.
    int Solve();
    // NewChores on the normal equations already in Noeq (set with SetNoeq or reduced).
    int SolveWithReduc();
    // Gauss-Jordan sweep; the inverse stays in the work copy, the covariance is not filled.
    int SolveWithSwpMat();
    // Full formation and a Cholesky (square-root) decomposition; corrections in Bcor, the
    // inverse of N in the covariance. The variance factor is not recomputed.
    int PISolve();

    double GetBcor(int i) const;
    // Column j of the current equation.
    double GetObeq(int j) const;
    double GetNoeq(int i, int j) const;
    // Element (i, j) of the augmented normal matrix; j == n writes Bcor[i] too.
    void SetNoeq(int i, int j, double v);
    double GetCovar(int i, int j) const;
    double GetVar(int e) const;
    int GetObeqSize() const { return m_equationNum; }
    int GetCurrentObeqNumber() const { return obeqColumn + 1; }
    int GetDegreesOfFreedom() const { return m_equationNum - m_unKnownParaNum; }
    // Milliseconds of the last solve and of forming its normal equations (from the engine's
    // clock reading; see time()).
    double GetComputationTime() const { return m_computationTime; }
    double GetFormTime() const { return m_formTime; }
    void SetSigma(double s) { m_sigma = s; }
    double GetSigma() const { return m_sigma; }
    double GetEps() const { return m_eps; }
    void SetEps(double eps) { m_eps = eps; }

    // Unweighted RMS residual over all equations (largest double with no equations).
    double CalStandard();
    // The residual sum divided by m - n (by m when m - n < 1), square-rooted.
    double CalStandard2();
    // Weighted residual sum over m - n (m when m - n < 1): the variance of unit weight.
    double CalSigma2();
    // The covariance times sigma. Returns 1.
    int CalVarianceOfEstimate();
    // Variance of each adjusted observation e: a_e^T Q a_e, with a_e the coefficients of
    // equation e and Q the covariance as it stands (the inverse of N times sigma once
    // CalVarianceOfEstimate has run, as NewChores does), i.e. sigma * a_e^T N^-1 a_e.
    int CalVarianceOfObservation();
    int CheckWeight();
    int CheckNoeq();
    int CheckParameterNumber();
    // Writes the normal matrix to "Noeq.txt" in the current directory (a diagnostic dump).
    int SaveErrorNoeqStatus(int rows, int cols);

    int CalLInverse();
    int CalNoeqInverse();

    // Milliseconds of the day from the UTC clock with a fixed +9 hour offset (the controller's
    // time zone) and no wrap at 24 h; solve times are differences of two such readings
    // (negative across the offset day boundary). Returns 1.
    static int time(__int64* t);

protected:
    int Lessqu(int m, int n);
    int LessquFast(int m, int n);
    int NewChores();
    int PIChores();
    int SwpMat();
    int LUDivid();
    int ForwardSubstiotution();
    int BackwardSubstiotution();

private:
    int FormAndSolve(bool full, int (CLeastSq::*solver)(), const wchar_t* formFailure);
    double ResidualSum(bool weighted) const;
    double& A(int i, int j) { return noeqTmp[i * m_Row + j]; }

    double m_sigma;

public:
    std::int32_t m_equationNum;
    std::int32_t m_unKnownParaNum;
    std::int32_t m_Row;
    std::int32_t m_NoeqNum;
    std::int32_t obeqColumn;

private:
    double m_computationTime;
    double m_formTime;
    double m_eps;

public:
    kel_templ::CKelArray<double, double> Obeq;
    kel_templ::CKelArray<double, double> Noeq;
    kel_templ::CKelArray<double, double> m_weight;
    kel_templ::CKelArray<double, double> Bcor;
    kel_templ::CKelArray<double, double> m_covar;
    kel_templ::CKelArray<double, double> noeqTmp;
    kel_templ::CKelArray<double, double> m_var;
};

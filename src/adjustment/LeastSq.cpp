#include "adjustment/LeastSq.h"

#include <cfloat>
#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "platform/File.h"
#include "platform/KelString.h"
#include "platform/Time.h"
#include "platform/Trace.h"

CLeastSq::CLeastSq()
    : m_sigma(0.0),
      m_equationNum(0),
      m_unKnownParaNum(0),
      m_Row(0),
      m_NoeqNum(0),
      obeqColumn(-1),
      m_computationTime(0.0),
      m_formTime(0.0),
      m_eps(kDefaultEps) {}

CLeastSq::CLeastSq(int n) : CLeastSq() { Create(1, n); }

CLeastSq::CLeastSq(int m, int n) : CLeastSq() { Create(m, n); }

CLeastSq::~CLeastSq() = default;

int CLeastSq::Create(int m, int n) {
    if (m < 0 || n < 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::Create m < 0 || n < 0");
        return 0;
    }
    m_equationNum = m;
    m_unKnownParaNum = n;
    m_Row = n + 1;
    m_NoeqNum = n * (n + 1);
    obeqColumn = -1;
    m_eps = kDefaultEps;
    m_computationTime = 0.0;
    m_formTime = 0.0;
    try {
        Obeq.SetSize(static_cast<int>(static_cast<double>(m) * (n + 1)), 0.0);
        Noeq.SetSize(m_NoeqNum);
        m_covar.SetSize(m_NoeqNum);
        noeqTmp.SetSize(m_NoeqNum);
        Bcor.SetSize(n);
        m_weight.SetSize(m);
        m_var.SetSize(m);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CLeastSq::Create CMemoryException");
        Create(0, 0);
        return 0;
    }
    InitParameter(Obeq, 0.0);
    InitParameter(Noeq, 0.0);
    InitParameter(Bcor, 0.0);
    InitParameter(m_weight, 1.0);
    return 1;
}

void CLeastSq::InitObeq() {
    obeqColumn = -1;
    m_computationTime = 0.0;
    m_formTime = 0.0;
}

int CLeastSq::InitNoeq() {
    if (Noeq.GetSize() != m_NoeqNum) {
        KEL_TRACE_ALWAYS(L"CLeastSq::InitNoeq size != m_NoeqNum");
        return 0;
    }
    InitParameter(Noeq, 0.0);
    m_computationTime = 0.0;
    m_formTime = 0.0;
    return 1;
}

int CLeastSq::InitBcor() {
    if (Bcor.GetSize() <= 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::InitBcor size <= 0");
        return 0;
    }
    InitParameter(Bcor, 0.0);
    return 1;
}

int CLeastSq::InitParameter(kel_templ::CKelArray<double, double>& a, double v) {
    for (int i = 0; i < a.GetSize(); ++i) a[i] = v;
    return 1;
}

int CLeastSq::SetObeq(int col, double v) {
    if (col >= m_Row || m_Row < 0 || col < 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::SetObeq obeqRow >= m_Row || m_Row < 0 || obeqRow < 0");
        return 0;
    }
    if (col == 0) {
        IncrementColumn();
        // Growing failed for want of memory: IncrementColumn has written the line.
        if (obeqColumn >= m_equationNum) return 0;
    }
    if (obeqColumn < 0 || obeqColumn >= m_equationNum) {
        // Reachable when a column other than 0 is written before any equation was started,
        // or into an equation whose row could not be allocated.
        KEL_TRACE_ALWAYS(L"CLeastSq::SetObeq obeqColumn < 0 || obeqColumn >= m_equationNum");
        return 0;
    }
    Obeq[obeqColumn * m_Row + col] = v;
    return 1;
}

void CLeastSq::IncrementColumn() {
    // An equation whose row could not be grown (obeqColumn == m_equationNum) is retried, not
    // stepped over: stepping over it would leave every later equation one row past the engine.
    if (obeqColumn < m_equationNum) ++obeqColumn;
    if (obeqColumn < m_equationNum) return;
    try {
        Obeq.SetSize((m_equationNum + 1) * m_Row, 0.0);
        m_weight.SetSize(m_equationNum + 1, 1.0);
        m_var.SetSize(m_equationNum + 1, 0.0);
        ++m_equationNum;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CLeastSq::IncrementColumn CMemoryException");
    }
}

int CLeastSq::SetWeight(double w) {
    if (obeqColumn < 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::SetWeight obeqColumn < 0");
        return 0;
    }
    m_weight[obeqColumn] = w;
    return 1;
}

int CLeastSq::SetWeight(int e, double w) {
    if (e < 0 || e >= m_weight.GetSize()) {
        KEL_TRACE_ALWAYS(L"CLeastSq::SetWeight e < 0 || e >= m_weight.GetSize()");
        return 0;
    }
    m_weight[e] = w;
    return 1;
}

double CLeastSq::GetBcor(int i) const { return Bcor[i]; }
double CLeastSq::GetObeq(int j) const { return Obeq[obeqColumn * m_Row + j]; }
double CLeastSq::GetNoeq(int i, int j) const { return Noeq[i * m_Row + j]; }

void CLeastSq::SetNoeq(int i, int j, double v) {
    Noeq[i * m_Row + j] = v;
    if (j == m_unKnownParaNum) Bcor[i] = v;
}

double CLeastSq::GetCovar(int i, int j) const { return m_covar[i * m_Row + j]; }
double CLeastSq::GetVar(int e) const { return m_var[e]; }

int CLeastSq::time(__int64* t) {
    SYSTEMTIME st;
    GetSystemTime(&st);
    *t = (((static_cast<__int64>(st.wHour) + 9) * 60 + st.wMinute) * 60 + st.wSecond) * 1000 +
         st.wMilliseconds;
    return 1;
}

int CLeastSq::CheckParameterNumber() {
    if (obeqColumn == -1) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CheckParameterNumber obeqColumn == -1");
        return 0;
    }
    if (m_equationNum != obeqColumn + 1) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CheckParameterNumber m_equationNum != obeqColumn + 1");
        return 0;
    }
    if (m_equationNum + 1 < m_Row) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CheckParameterNumber m_equationNum + 1 < m_Row");
        return 0;
    }
    return 1;
}

int CLeastSq::FormAndSolve(bool full, int (CLeastSq::*solver)(), const wchar_t* formFailure) {
    CheckParameterNumber();  // only logs: the solve goes on whatever it says
    __int64 t0 = 0, t1 = 0;
    time(&t0);
    const int formed = full ? Lessqu(m_equationNum, m_unKnownParaNum)
                            : LessquFast(m_equationNum, m_unKnownParaNum);
    if (!formed) {
        KEL_TRACE_ALWAYS(formFailure);
        return 0;
    }
    time(&t1);
    m_formTime = static_cast<double>(t1 - t0);
    time(&t0);
    const int result = (this->*solver)();
    time(&t1);
    m_computationTime = static_cast<double>(t1 - t0);
    return result;
}

int CLeastSq::Solve() {
    return FormAndSolve(false, &CLeastSq::NewChores,
                        L"CLeastSq::Solve LessquFast( m_equationNum , m_unKnownParaNum ) == FALSE");
}

int CLeastSq::SolveWithSwpMat() {
    return FormAndSolve(
        false, &CLeastSq::SwpMat,
        L"CLeastSq::SolveWithSwpMat LessquFast( m_equationNum , m_unKnownParaNum ) == FALSE");
}

int CLeastSq::PISolve() {
    return FormAndSolve(true, &CLeastSq::PIChores,
                        L"CLeastSq::PISolve Lessqu( m_equationNum , m_unKnownParaNum ) == FALSE");
}

int CLeastSq::SolveWithReduc() {
    __int64 t0 = 0, t1 = 0;
    time(&t0);
    const int result = NewChores();
    time(&t1);
    m_computationTime = static_cast<double>(t1 - t0);
    return result;
}

int CLeastSq::Lessqu(int m, int n) {
    const int row = m_Row;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < row; ++j) {
            double s = 0.0;
            for (int e = 0; e < m; ++e) s += m_weight[e] * Obeq[e * row + j] * Obeq[e * row + i];
            Noeq[i * row + j] = s;
        }
        Bcor[i] = Noeq[i * row + n];
    }
    CheckWeight();
    return CheckNoeq();
}

int CLeastSq::LessquFast(int m, int n) {
    const int row = m_Row;
    const double* a = Obeq.GetData();
    const double* w = m_weight.GetData();
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < row; ++j) {
            double s = 0.0;
            for (int e = 0; e < m; ++e) s += w[e] * a[e * row + j] * a[e * row + i];
            Noeq[i * row + j] = s;
            if (j < n) Noeq[j * row + i] = s;
        }
        Bcor[i] = Noeq[i * row + n];
    }
    return CheckNoeq();
}

int CLeastSq::CheckNoeq() {
    for (int i = 0; i < m_unKnownParaNum; ++i)
        if (std::fabs(Noeq[i * m_Row + i]) <= m_eps) return 0;
    return 1;
}

int CLeastSq::CheckWeight() {
    int cnt = 0;
    for (int e = 0; e < m_weight.GetSize(); ++e)
        if (m_weight[e] < m_eps) ++cnt;
    if (cnt == m_weight.GetSize()) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CheckWeight cnt == size");
        return 0;
    }
    return 1;
}

int CLeastSq::NewChores() {
    if (!LUDivid()) return 0;
    ForwardSubstiotution();
    if (!BackwardSubstiotution()) return 0;
    CalLInverse();
    if (!CalNoeqInverse()) return 0;
    if (obeqColumn > 0) {
        m_sigma = CalSigma2();
        CalVarianceOfEstimate();
        CalVarianceOfObservation();
    }
    return 1;
}

int CLeastSq::LUDivid() {
    for (int k = 0; k < m_NoeqNum; ++k) noeqTmp[k] = Noeq[k];
    const int n = m_unKnownParaNum;
    if (n < 2) return 1;
    for (int i = 1; i < n; ++i) {
        for (int j = 1; j < i; ++j) {
            double s = 0.0;
            for (int k = 0; k < j; ++k) s += A(j, k) * A(i, k);
            A(i, j) -= s;
        }
        for (int k = 0; k < i; ++k) {
            if (std::fabs(A(k, k)) < m_eps) {
                KEL_TRACE_ALWAYS(L"CLeastSq::LUDivid fabs( noeqTmp.GetAt( posii ) ) < eps");
                return 0;
            }
            const double t = A(i, k);
            A(i, k) = t / A(k, k);
            A(i, i) -= A(i, k) * t;
        }
    }
    return 1;
}

int CLeastSq::ForwardSubstiotution() {
    for (int i = 1; i < m_unKnownParaNum; ++i) {
        double s = 0.0;
        for (int k = 0; k < i; ++k) s += Bcor[k] * A(i, k);
        Bcor[i] -= s;
    }
    return 1;
}

int CLeastSq::BackwardSubstiotution() {
    const int n = m_unKnownParaNum;
    for (int i = n - 1; i >= 0; --i) {
        if (std::fabs(A(i, i)) < m_eps) {
            KEL_TRACE_ALWAYS(L"CLeastSq::BackwardSubstiotution fabs( noeqTmp.GetAt( pos ) ) < eps");
            return 0;
        }
        double x = Bcor[i] / A(i, i);
        for (int j = i + 1; j < n; ++j) x -= Bcor[j] * A(j, i);
        Bcor[i] = x;
    }
    return 1;
}

int CLeastSq::CalLInverse() {
    const int n = m_unKnownParaNum;
    for (int i = 1; i < n; ++i) A(i, 0) = -A(i, 0);
    for (int j = 1; j <= n - 2; ++j) {
        for (int i = j + 1; i < n; ++i) {
            for (int k = 0; k < j; ++k) A(i, k) -= A(j, k) * A(i, j);
            A(i, j) = -A(i, j);
        }
    }
    return 1;
}

int CLeastSq::CalNoeqInverse() {
    const int n = m_unKnownParaNum;
    for (int k = 0; k < n; ++k) {
        if (std::fabs(A(k, k)) < m_eps) {
            KEL_TRACE_ALWAYS(L"CLeastSq::CalNoeqInverse fabs( noeqTmp.GetAt( posjj ) ) < eps");
            A(k, k) = m_eps;
            return 0;
        }
    }
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < n; ++j) {
            double q = 0.0;
            for (int k = j; k < n; ++k) {
                const double mki = k == i ? 1.0 : A(k, i);
                const double mkj = k == j ? 1.0 : A(k, j);
                q += mki * mkj / A(k, k);
            }
            m_covar[i * m_Row + j] = q;
            m_covar[j * m_Row + i] = q;
        }
    }
    return 1;
}

int CLeastSq::CalVarianceOfEstimate() {
    for (int k = 0; k < m_NoeqNum && k < m_covar.GetSize(); ++k) m_covar[k] *= m_sigma;
    return 1;
}

int CLeastSq::CalVarianceOfObservation() {
    const int m = m_equationNum;
    const int n = m_unKnownParaNum;
    m_var.SetSize(m, 0.0);
    for (int e = 0; e < m; ++e) {
        const double* a = &Obeq[e * m_Row];
        double v = 0.0;
        for (int i = 0; i < n; ++i) {
            double qa = 0.0;
            for (int j = 0; j < n; ++j) qa += m_covar[i * m_Row + j] * a[j];
            v += a[i] * qa;
        }
        m_var[e] = v;
    }
    return 1;
}

int CLeastSq::SwpMat() {
    for (int k = 0; k < m_NoeqNum; ++k) noeqTmp[k] = Noeq[k];
    const int n = m_unKnownParaNum;
    for (int k = 0; k < n; ++k) {
        const double p = 1.0 / A(k, k);  // a zero pivot gives infinities, as documented
        for (int j = 0; j < m_Row; ++j) A(k, j) *= p;
        A(k, k) = p;
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            const double t = A(i, k);
            A(i, k) = 0.0;
            for (int j = 0; j < m_Row; ++j) A(i, j) -= A(k, j) * t;
        }
    }
    for (int i = 0; i < n; ++i) Bcor[i] = A(i, n);
    return 1;
}

int CLeastSq::PIChores() {
    for (int k = 0; k < m_NoeqNum; ++k) noeqTmp[k] = Noeq[k];
    const int n = m_unKnownParaNum;
    // N = L L^T with L lower triangular, in the lower triangle of the work copy.
    for (int j = 0; j < n; ++j) {
        double d = A(j, j);
        for (int k = 0; k < j; ++k) d -= A(j, k) * A(j, k);
        if (!(d > m_eps)) {
            KEL_TRACE_ALWAYS(L"CLeastSq::PIChores d <= eps");
            return 0;
        }
        A(j, j) = std::sqrt(d);
        for (int i = j + 1; i < n; ++i) {
            double s = A(i, j);
            for (int k = 0; k < j; ++k) s -= A(i, k) * A(j, k);
            A(i, j) = s / A(j, j);
        }
    }
    // L y = b, then L^T x = y.
    for (int i = 0; i < n; ++i) {
        double s = Bcor[i];
        for (int k = 0; k < i; ++k) s -= A(i, k) * Bcor[k];
        Bcor[i] = s / A(i, i);
    }
    for (int i = n - 1; i >= 0; --i) {
        double s = Bcor[i];
        for (int k = i + 1; k < n; ++k) s -= A(k, i) * Bcor[k];
        Bcor[i] = s / A(i, i);
    }
    // N^-1 = L^-T L^-1, with M = L^-1 lower triangular.
    std::vector<double> mInv(static_cast<std::size_t>(n) * n, 0.0);
    for (int j = 0; j < n; ++j) {
        mInv[j * n + j] = 1.0 / A(j, j);
        for (int i = j + 1; i < n; ++i) {
            double s = 0.0;
            for (int k = j; k < i; ++k) s -= A(i, k) * mInv[k * n + j];
            mInv[i * n + j] = s / A(i, i);
        }
    }
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < n; ++j) {
            double q = 0.0;
            for (int k = j; k < n; ++k) q += mInv[k * n + i] * mInv[k * n + j];
            m_covar[i * m_Row + j] = q;
            m_covar[j * m_Row + i] = q;
        }
    }
    return 1;
}

double CLeastSq::ResidualSum(bool weighted) const {
    const int n = m_unKnownParaNum;
    double sum = 0.0;
    for (int e = 0; e < m_equationNum; ++e) {
        double r = Obeq[e * m_Row + n];
        for (int j = 0; j < n; ++j) r -= Bcor[j] * Obeq[e * m_Row + j];
        sum += (weighted ? m_weight[e] : 1.0) * r * r;
    }
    return sum;
}

double CLeastSq::CalStandard() {
    if (m_equationNum <= 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CalStandard m_equationNum <= 0");
        return DBL_MAX;
    }
    return std::sqrt(ResidualSum(false) / m_equationNum);
}

double CLeastSq::CalStandard2() {
    if (m_equationNum <= 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CalStandard2 m_equationNum <= 0");
        return DBL_MAX;
    }
    const int dof = m_equationNum - m_unKnownParaNum;
    return std::sqrt(ResidualSum(false) / (dof >= 1 ? dof : m_equationNum));
}

double CLeastSq::CalSigma2() {
    if (m_equationNum <= 0) {
        KEL_TRACE_ALWAYS(L"CLeastSq::CalSigma2 m_equationNum <= 0");
        return DBL_MAX;
    }
    const int dof = m_equationNum - m_unKnownParaNum;
    return ResidualSum(true) / (dof >= 1 ? dof : m_equationNum);
}

int CLeastSq::SaveErrorNoeqStatus(int rows, int cols) {
    // The dump is clamped to the matrix, so a wrong size cannot run past the array; the
    // header keeps the arguments as given (first the rows, then the columns).
    const int nRows = rows < m_unKnownParaNum ? rows : m_unKnownParaNum;
    const int nCols = cols < m_Row ? cols : m_Row;
    CFile file;
    if (!file.Open(L"Noeq.txt", CFile::modeCreate | CFile::modeWrite)) {
        KEL_TRACE_ALWAYS(L"CLeastSq::SaveErrorNoeqStatus fp == NULL");
        return 0;
    }
    kel_text::CKelString text, item;
    text.Format(L"Col:%d Row:%d\n", rows, cols);
    for (int i = 0; i < nRows; ++i) {
        for (int j = 0; j < nCols; ++j) {
            const double v = Noeq[i * m_Row + j];
            if (i == j) text += v < m_eps ? L"*" : L"#";
            item.Format(L"%.1le ", v);
            text += item;
        }
        text += L"\n";
    }
    const std::string bytes = kel_text::WideToSingleByte(text);
    try {
        file.WriteAll(bytes.data(), bytes.size());
        file.Close();
    } catch (const CFileException&) {
        KEL_TRACE_ALWAYS(L"CLeastSq::SaveErrorNoeqStatus fp == NULL");
        return 0;
    }
    return 1;
}

#include "cli/commandline.h"

#include <QUrl>

namespace Tavrinox::Cli {

namespace {

enum class Option { Yes, Json, Deep, Windows, Linux, Server, CaFile, Help };

struct OptionSpec
{
    Option option;
    const char *longName;
    const char *shortName; // nullptr: none
    const char *valueName; // nullptr: a flag
    const char *description;
};

const OptionSpec kOptions[] = {
    {Option::Yes, "--yes", "-y", nullptr, "Não pergunta antes de gravar na unidade."},
    {Option::Json, "--json", nullptr, nullptr, "Escreve o resultado em JSON (formato descrito no README)."},
    {Option::Deep, "--deep", nullptr, nullptr,
     "Compara também o conteúdo de cada arquivo (SHA-256), não só nomes e tamanhos."},
    {Option::Windows, "--windows", nullptr, "PASTA",
     "Usa o bundle Windows desta pasta (a que contém Tavrinox.exe) em vez do encontrado."},
    {Option::Linux, "--linux", nullptr, "PASTA",
     "Usa o bundle Linux desta pasta (a que contém Tavrinox) em vez do encontrado."},
    {Option::Server, "--server", nullptr, "URL",
     "Consulta este servidor de atualização (https://...), um espelho por exemplo, em vez do configurado."},
    {Option::CaFile, "--ca-file", nullptr, "ARQUIVO",
     "Confia também nas autoridades certificadoras deste arquivo PEM (redes corporativas)."},
    {Option::Help, "--help", "-h", nullptr, "Mostra esta ajuda."},
};

struct CommandSpec
{
    const char *name;
    const char *operand; // as the usage line shows it; empty: none
    int minDrives;
    int maxDrives; // -1: any number
    QList<Option> options;
    const char *summary;
    const char *description;
};

const QList<CommandSpec> &commands()
{
    static const QList<CommandSpec> table{
        {"list",
         "",
         0,
         0,
         {Option::Json},
         "Lista as unidades USB, como a janela as lista.",
         "Lista as unidades USB deste computador: rótulo, dispositivo, raiz de montagem, sistema de\n"
         "arquivos, se está montada e, numa unidade preparada, a versão do Tavrinox instalada."},
        {"prepare",
         "UNIDADE...",
         1,
         -1,
         {Option::Yes, Option::Windows, Option::Linux},
         "Prepara unidades com os bundles Windows e Linux do Tavrinox.",
         "Cria a estrutura Tavrinox em cada unidade, sem formatá-la: os bundles Windows e Linux, os\n"
         "inicializadores e o README, e registra a versão instalada. Pergunta uma vez antes de gravar.\n"
         "Várias unidades são preparadas ao mesmo tempo; a falha de uma não interrompe as outras.\n"
         "Ctrl+C para depois do arquivo em cópia e diz o que faltou; repetir o comando continua.\n"
         "Os bundles são procurados como a janela os procura (veja o README)."},
        {"check",
         "UNIDADE",
         1,
         1,
         {Option::Json, Option::Server, Option::CaFile},
         "Compara a versão instalada com a disponível no servidor.",
         "Consulta o servidor de atualização e mostra a versão instalada na unidade, a disponível e\n"
         "as notas da versão. Nada é gravado."},
        {"update",
         "UNIDADE",
         1,
         1,
         {Option::Yes, Option::Server, Option::CaFile},
         "Verifica e aplica a atualização da unidade.",
         "Verifica as mesmas condições que a janela, recupera antes uma atualização interrompida,\n"
         "consulta o servidor e, se houver versão mais nova e a resposta for sim, baixa, confere e\n"
         "aplica o pacote numa transação registrada. Ctrl+C não interrompe a transação: ela termina\n"
         "ou é revertida antes de o programa sair."},
        {"recover",
         "UNIDADE",
         1,
         1,
         {},
         "Recupera uma atualização interrompida.",
         "Conclui, descarta ou reverte a atualização interrompida registrada na unidade e diz o que\n"
         "fez. Sem atualização pendente, nada muda."},
        {"recycle",
         "",
         0,
         0,
         {},
         "Recicla o espaço de trabalho do Tavrinox neste computador.",
         "Remove as pastas de trabalho de cofres que nenhuma instância do Tavrinox está usando."},
        {"verify",
         "UNIDADE",
         1,
         1,
         {Option::Deep, Option::Json, Option::Windows, Option::Linux},
         "Compara os bundles da unidade com as fontes de preparação.",
         "Compara Tavrinox/windows e Tavrinox/linux da unidade com os bundles que a preparação\n"
         "copiaria e lista os arquivos ausentes, extras e diferentes (por tamanho; com --deep, também\n"
         "por SHA-256). Nada é gravado."},
    };
    return table;
}

const CommandSpec *findCommand(const QString &name)
{
    for (const CommandSpec &entry : commands()) {
        if (name == QLatin1String(entry.name))
            return &entry;
    }
    return nullptr;
}

const OptionSpec *findOption(const QString &name)
{
    for (const OptionSpec &entry : kOptions) {
        if (name == QLatin1String(entry.longName) || (entry.shortName && name == QLatin1String(entry.shortName)))
            return &entry;
    }
    return nullptr;
}

const OptionSpec &optionSpec(Option option)
{
    for (const OptionSpec &entry : kOptions) {
        if (entry.option == option)
            return entry;
    }
    Q_UNREACHABLE();
}

void store(CommandLine &line, Option option, const QString &value)
{
    switch (option) {
    case Option::Yes:
        line.yes = true;
        break;
    case Option::Json:
        line.json = true;
        break;
    case Option::Deep:
        line.deep = true;
        break;
    case Option::Windows:
        line.windowsFolder = value;
        break;
    case Option::Linux:
        line.linuxFolder = value;
        break;
    case Option::Server:
        line.server = value;
        break;
    case Option::CaFile:
        line.caFile = value;
        break;
    case Option::Help:
        line.help = true;
        break;
    }
}

// The operands and options after the command; the first problem found is the one reported.
QString readCommandArguments(const CommandSpec &entry, const QStringList &arguments, CommandLine &line)
{
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString argument = arguments.at(i);
        if (optionsEnded || !argument.startsWith(QLatin1Char('-')) || argument == QLatin1String("-")) {
            line.drives.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString value;
        const qsizetype equals = argument.indexOf(QLatin1Char('='));
        const bool inlineValue = argument.startsWith(QLatin1String("--")) && equals > 0;
        if (inlineValue) {
            value = argument.mid(equals + 1);
            argument.truncate(equals);
        }
        const OptionSpec *option = findOption(argument);
        if (!option || (option->option != Option::Help && !entry.options.contains(option->option)))
            return QStringLiteral("o comando %1 não aceita a opção %2.")
                .arg(QLatin1String(entry.name), argument);
        if (option->valueName && !inlineValue) {
            if (++i == arguments.size())
                return QStringLiteral("falta o valor de %1.").arg(argument);
            value = arguments.at(i);
        }
        if (option->valueName && value.isEmpty())
            return QStringLiteral("falta o valor de %1.").arg(argument);
        if (!option->valueName && inlineValue)
            return QStringLiteral("a opção %1 não recebe valor.").arg(argument);
        store(line, option->option, value);
    }
    if (line.help)
        return QString();
    if (line.drives.size() < entry.minDrives)
        return QStringLiteral("falta a unidade.");
    if (entry.maxDrives >= 0 && line.drives.size() > entry.maxDrives)
        return QStringLiteral("argumento a mais: %1").arg(line.drives.at(entry.maxDrives));
    if (!line.server.isEmpty()) {
        const QUrl server(line.server, QUrl::StrictMode);
        if (!server.isValid() || server.scheme() != QLatin1String("https") || server.host().isEmpty())
            return QStringLiteral("o servidor de atualização precisa ser um endereço https://: %1")
                .arg(line.server);
    }
    return QString();
}

QString optionColumn(const OptionSpec &entry)
{
    QString names = entry.shortName ? QStringLiteral("%1, %2").arg(QLatin1String(entry.shortName),
                                                                  QLatin1String(entry.longName))
                                   : QLatin1String(entry.longName);
    if (entry.valueName)
        names += QLatin1Char(' ') + QLatin1String(entry.valueName);
    return names;
}

QString programHelp()
{
    QString text =
        usageLine(QString()) +
        QStringLiteral("\n\nPrepara, confere e atualiza unidades USB com o Tavrinox pelo terminal.\n\n"
                       "Comandos:\n");
    for (const CommandSpec &entry : commands())
        text += QStringLiteral("  %1%2\n")
                    .arg(QLatin1String(entry.name), -10)
                    .arg(QString::fromUtf8(entry.summary));
    return text + QStringLiteral(
                      "\nUNIDADE é a raiz de montagem, o dispositivo ou o rótulo mostrado por \"tavrinox-cli "
                      "list\".\n"
                      "\"tavrinox-cli COMANDO --help\" mostra as opções de cada comando; \"tavrinox-cli "
                      "--version\", a versão.\n\n"
                      "Resultados na saída padrão; progresso, perguntas e avisos na saída de erro.\n"
                      "Código de saída: 0 sucesso, 1 a operação falhou ou não foi feita, 2 uso incorreto,\n"
                      "3 unidade não encontrada ou não montada.\n");
}

} // namespace

CommandLine parseCommandLine(const QStringList &arguments)
{
    CommandLine line;
    if (arguments.isEmpty()) {
        line.error = QStringLiteral("falta o comando.");
        return line;
    }
    const QString &first = arguments.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        line.help = true;
        return line;
    }
    if (first == QLatin1String("--version")) {
        line.version = true;
        return line;
    }
    const CommandSpec *entry = findCommand(first);
    if (!entry) {
        line.error = QStringLiteral("comando desconhecido: %1").arg(first);
        return line;
    }
    line.command = first;
    line.error = readCommandArguments(*entry, arguments.mid(1), line);
    return line;
}

QString usageLine(const QString &command)
{
    const CommandSpec *entry = findCommand(command);
    if (!entry)
        return QStringLiteral("Uso: tavrinox-cli COMANDO [OPÇÕES] [UNIDADE...]");
    QString line = QStringLiteral("Uso: tavrinox-cli %1").arg(QLatin1String(entry->name));
    if (*entry->operand)
        line += QLatin1Char(' ') + QLatin1String(entry->operand);
    for (const Option option : entry->options) {
        const OptionSpec &described = optionSpec(option);
        line += QStringLiteral(" [%1]").arg(QLatin1String(described.longName));
        if (described.valueName)
            line.insert(line.size() - 1, QLatin1Char(' ') + QLatin1String(described.valueName));
    }
    return line;
}

QString helpText(const QString &command)
{
    const CommandSpec *entry = findCommand(command);
    if (!entry)
        return programHelp();
    QString text = usageLine(command) + QStringLiteral("\n\n") + QString::fromUtf8(entry->description) +
                   QStringLiteral("\n\nOpções:\n");
    QList<Option> options = entry->options;
    options.append(Option::Help);
    for (const Option option : options) {
        const OptionSpec &described = optionSpec(option);
        text += QStringLiteral("  %1%2\n")
                    .arg(optionColumn(described), -20)
                    .arg(QString::fromUtf8(described.description));
    }
    return text;
}

} // namespace Tavrinox::Cli

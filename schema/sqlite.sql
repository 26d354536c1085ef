-- Accounting tables for SQLite 3.
-- Each statement ends with a semicolon at the end of a line so the loader can split and run them one by one.

-- Chart of accounts
create table CTB_CONTA (
    EMPRESA             INTEGER NOT NULL,
    REVENDA             INTEGER NOT NULL,
    CONTA               VARCHAR(20) NOT NULL,
    CONTA_SUPERIORA     VARCHAR(20),
    NIVEL               VARCHAR(1),
    NIVEL_DIVISAO       INTEGER,
    LANCAMENTO_DIVIDIDO VARCHAR(1),
    DES_CONTA           VARCHAR(100),
    CONSTRAINT PK_CTB_CONTA PRIMARY KEY (EMPRESA, REVENDA, CONTA)
);
create index IX_CTB_CONTA_1 on CTB_CONTA (EMPRESA, REVENDA, CONTA_SUPERIORA);

-- Journal entries
create table CTB_LANCAMENTO (
    EMPRESA                INTEGER NOT NULL,
    REVENDA                INTEGER NOT NULL,
    ANO_MES                INTEGER NOT NULL,
    LANCAMENTO             INTEGER NOT NULL,
    LCO_ORIGEM             INTEGER,
    USUARIO                INTEGER,
    CONTA                  VARCHAR(20),
    HISTORICO_PADRAO       INTEGER,
    DIA                    INTEGER,
    NATUREZA               VARCHAR(1),
    VAL_LANCAMENTO         NUMERIC(15,2),
    ORIGEM                 VARCHAR(1),
    HIS_COMPLEMENTAR       VARCHAR(250),
    DOCUMENTO              INTEGER,
    LCO_OK                 VARCHAR(1),
    OPERACAO               INTEGER,
    ENCERRAMENTO_EXERCICIO VARCHAR(1),
    REVENDA_OPERACAO       INTEGER,
    CONSTRAINT PK_CTB_LANCAMENTO PRIMARY KEY (EMPRESA, REVENDA, ANO_MES, LANCAMENTO)
);
create index IX_CTB_LANCAMENTO_1 on CTB_LANCAMENTO (EMPRESA, REVENDA, CONTA, NATUREZA, ANO_MES, VAL_LANCAMENTO, DIA, LANCAMENTO, HISTORICO_PADRAO);
create index IX_CTB_LANCAMENTO_2 on CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LCO_ORIGEM);

-- Division rows of journal entries, no primary key because SEQUENCIA restarts per session
create table CTB_LANCAMENTO_DIVIDIDO (
    SEQUENCIA           INTEGER,
    EMPRESA             INTEGER,
    REVENDA             INTEGER,
    ANO_MES             INTEGER,
    LANCAMENTO          INTEGER,
    REVENDA_DIVISAO     INTEGER,
    CENTRO_CUSTO        INTEGER,
    FONTE               INTEGER,
    CATEGORIA           INTEGER,
    SECAO_OFICINA       INTEGER,
    TIPO_ITEM           VARCHAR(1),
    MODALIDADE_OPERACAO VARCHAR(1),
    REVENDA_ORIGEM      INTEGER,
    VAL_DIVISAO         NUMERIC(15,2)
);
create index IX_CTB_LANCAMENTO_DIVIDIDO_1 on CTB_LANCAMENTO_DIVIDIDO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA, TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO);

-- Journal entries, CV copy with the same layout as CTB_LANCAMENTO
create table CTB_LANCAMENTO_CV (
    EMPRESA                INTEGER NOT NULL,
    REVENDA                INTEGER NOT NULL,
    ANO_MES                INTEGER NOT NULL,
    LANCAMENTO             INTEGER NOT NULL,
    LCO_ORIGEM             INTEGER,
    USUARIO                INTEGER,
    CONTA                  VARCHAR(20),
    HISTORICO_PADRAO       INTEGER,
    DIA                    INTEGER,
    NATUREZA               VARCHAR(1),
    VAL_LANCAMENTO         NUMERIC(15,2),
    ORIGEM                 VARCHAR(1),
    HIS_COMPLEMENTAR       VARCHAR(250),
    DOCUMENTO              INTEGER,
    LCO_OK                 VARCHAR(1),
    OPERACAO               INTEGER,
    ENCERRAMENTO_EXERCICIO VARCHAR(1),
    REVENDA_OPERACAO       INTEGER,
    CONSTRAINT PK_CTB_LANCAMENTO_CV PRIMARY KEY (EMPRESA, REVENDA, ANO_MES, LANCAMENTO)
);
create index IX_CTB_LANCAMENTO_CV_1 on CTB_LANCAMENTO_CV (EMPRESA, REVENDA, CONTA, NATUREZA, ANO_MES, VAL_LANCAMENTO, DIA, LANCAMENTO, HISTORICO_PADRAO);
create index IX_CTB_LANCAMENTO_CV_2 on CTB_LANCAMENTO_CV (EMPRESA, REVENDA, ANO_MES, LCO_ORIGEM);

-- Division rows, CV copy with the same layout as CTB_LANCAMENTO_DIVIDIDO
create table CTB_LANCAMENTO_DIVIDIDO_CV (
    SEQUENCIA           INTEGER,
    EMPRESA             INTEGER,
    REVENDA             INTEGER,
    ANO_MES             INTEGER,
    LANCAMENTO          INTEGER,
    REVENDA_DIVISAO     INTEGER,
    CENTRO_CUSTO        INTEGER,
    FONTE               INTEGER,
    CATEGORIA           INTEGER,
    SECAO_OFICINA       INTEGER,
    TIPO_ITEM           VARCHAR(1),
    MODALIDADE_OPERACAO VARCHAR(1),
    REVENDA_ORIGEM      INTEGER,
    VAL_DIVISAO         NUMERIC(15,2)
);
create index IX_CTB_LANC_DIVIDIDO_CV_1 on CTB_LANCAMENTO_DIVIDIDO_CV (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA, TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO);

-- Opening balance per account and year. Keep the column order, rows are inserted without a column list
create table CTB_SALDO_ANTERIOR (
    EMPRESA INTEGER NOT NULL,
    REVENDA INTEGER NOT NULL,
    CONTA   VARCHAR(20) NOT NULL,
    ANO     INTEGER NOT NULL,
    SALDO   NUMERIC(15,2),
    CONSTRAINT PK_CTB_SALDO_ANTERIOR PRIMARY KEY (EMPRESA, REVENDA, CONTA, ANO)
);

-- Opening balance per account, year and division
create table CTB_SALDO_ANTERIOR_DIVISAO (
    SEQUENCIA           INTEGER NOT NULL,
    EMPRESA             INTEGER,
    REVENDA             INTEGER,
    ANO                 INTEGER,
    CONTA               VARCHAR(20),
    REVENDA_DIVISAO     INTEGER,
    TIPO_ITEM           VARCHAR(1),
    CATEGORIA           INTEGER,
    CENTRO_CUSTO        INTEGER,
    MODALIDADE_OPERACAO VARCHAR(1),
    SECAO_OFICINA       INTEGER,
    FONTE               INTEGER,
    SALDO               NUMERIC(15,2),
    REVENDA_ORIGEM      INTEGER,
    CONSTRAINT PK_CTB_SALDO_ANTERIOR_DIVISAO PRIMARY KEY (SEQUENCIA)
);
create index IX_CTB_SALDO_ANT_DIVISAO_1 on CTB_SALDO_ANTERIOR_DIVISAO (EMPRESA, REVENDA, CONTA, ANO);

-- Opening balance, CV copy. Keep the column order, rows are inserted without a column list
create table CTB_SALDO_ANTERIOR_CV (
    EMPRESA INTEGER NOT NULL,
    REVENDA INTEGER NOT NULL,
    CONTA   VARCHAR(20) NOT NULL,
    ANO     INTEGER NOT NULL,
    SALDO   NUMERIC(15,2),
    CONSTRAINT PK_CTB_SALDO_ANTERIOR_CV PRIMARY KEY (EMPRESA, REVENDA, CONTA, ANO)
);

-- Opening balance per division, CV copy
create table CTB_SALDO_ANTERIOR_DIVISAO_CV (
    SEQUENCIA           INTEGER NOT NULL,
    EMPRESA             INTEGER,
    REVENDA             INTEGER,
    ANO                 INTEGER,
    CONTA               VARCHAR(20),
    REVENDA_DIVISAO     INTEGER,
    TIPO_ITEM           VARCHAR(1),
    CATEGORIA           INTEGER,
    CENTRO_CUSTO        INTEGER,
    MODALIDADE_OPERACAO VARCHAR(1),
    SECAO_OFICINA       INTEGER,
    FONTE               INTEGER,
    SALDO               NUMERIC(15,2),
    REVENDA_ORIGEM      INTEGER,
    CONSTRAINT PK_CTB_SALDO_ANT_DIVISAO_CV PRIMARY KEY (SEQUENCIA)
);
create index IX_CTB_SALDO_ANT_DIVISAO_CV_1 on CTB_SALDO_ANTERIOR_DIVISAO_CV (EMPRESA, REVENDA, CONTA, ANO);

-- Opening balance per account and month
create table CTB_SALANT_MES (
    EMPRESA INTEGER NOT NULL,
    REVENDA INTEGER NOT NULL,
    CONTA   VARCHAR(20) NOT NULL,
    ANO_MES INTEGER NOT NULL,
    SALDO   NUMERIC(15,2),
    CONSTRAINT PK_CTB_SALANT_MES PRIMARY KEY (EMPRESA, REVENDA, CONTA, ANO_MES)
);

-- Opening balance per account, month and division, no primary key
create table CTB_SALANT_DIVISAO_MES (
    EMPRESA             INTEGER,
    REVENDA             INTEGER,
    CONTA               VARCHAR(20),
    ANO_MES             INTEGER,
    REVENDA_DIVISAO     INTEGER,
    CENTRO_CUSTO        INTEGER,
    FONTE               INTEGER,
    CATEGORIA           INTEGER,
    SECAO_OFICINA       INTEGER,
    TIPO_ITEM           VARCHAR(1),
    MODALIDADE_OPERACAO VARCHAR(1),
    SALDO               NUMERIC(15,2)
);
create index IX_CTB_SALANT_DIVISAO_MES_1 on CTB_SALANT_DIVISAO_MES (EMPRESA, REVENDA, CONTA, ANO_MES);

-- Accounting division levels
create table CTB_DIVISAO_CONTABIL (
    EMPRESA      INTEGER NOT NULL,
    REVENDA      INTEGER NOT NULL,
    NIVEL        INTEGER NOT NULL,
    TIPO_DIVISAO VARCHAR(1),
    CONSTRAINT PK_CTB_DIVISAO_CONTABIL PRIMARY KEY (EMPRESA, REVENDA, NIVEL)
);

-- Cost centres
create table CTB_CENTRO_CUSTO (
    EMPRESA           INTEGER NOT NULL,
    REVENDA           INTEGER NOT NULL,
    CENTRO_CUSTO      INTEGER NOT NULL,
    DES_CENTRO_CUSTO  VARCHAR(60),
    INATIVO_CONSULTAS VARCHAR(1),
    CONSTRAINT PK_CTB_CENTRO_CUSTO PRIMARY KEY (EMPRESA, REVENDA, CENTRO_CUSTO)
);

-- Book numbering and the month of the last result calculation
create table FAT_NUMERACAO_LIVROS (
    EMPRESA                   INTEGER NOT NULL,
    REVENDA                   INTEGER NOT NULL,
    ANOMES_APURACAO_RESULTADO DATE,
    CONSTRAINT PK_FAT_NUMERACAO_LIVROS PRIMARY KEY (EMPRESA, REVENDA)
);

-- Invoice headers
create table FAT_MOVIMENTO_CAPA (
    EMPRESA            INTEGER NOT NULL,
    REVENDA            INTEGER NOT NULL,
    NUMERO_NOTA_FISCAL INTEGER NOT NULL,
    SERIE_NOTA_FISCAL  VARCHAR(5) NOT NULL,
    TIPO_TRANSACAO     VARCHAR(5) NOT NULL,
    CONTADOR           INTEGER NOT NULL,
    OPERACAO           INTEGER,
    CONSTRAINT PK_FAT_MOVIMENTO_CAPA PRIMARY KEY (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, SERIE_NOTA_FISCAL, TIPO_TRANSACAO, CONTADOR)
);

-- Free text lines of invoices
create table FAT_MOVIMENTO_DESC_LIVRE (
    EMPRESA            INTEGER NOT NULL,
    REVENDA            INTEGER NOT NULL,
    NUMERO_NOTA_FISCAL INTEGER NOT NULL,
    SERIE_NOTA_FISCAL  VARCHAR(5) NOT NULL,
    TIPO_TRANSACAO     VARCHAR(5) NOT NULL,
    CONTADOR           INTEGER NOT NULL,
    ORDEM              INTEGER NOT NULL,
    DESCRICAO          VARCHAR(250),
    CONSTRAINT PK_FAT_MOVIMENTO_DESC_LIVRE PRIMARY KEY (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, SERIE_NOTA_FISCAL, TIPO_TRANSACAO, CONTADOR, ORDEM)
);

-- Transaction types
create table FAT_TIPO_TRANSACAO (
    TIPO_TRANSACAO   VARCHAR(5) NOT NULL,
    UTILIZA_DESPESAS VARCHAR(1),
    CONSTRAINT PK_FAT_TIPO_TRANSACAO PRIMARY KEY (TIPO_TRANSACAO)
);

-- Change log header
create table GER_LOG_CADASTROS (
    LOG_CADASTROS  INTEGER NOT NULL,
    EMPRESA        INTEGER,
    REVENDA        INTEGER,
    USUARIO        INTEGER,
    DTA_ALTERACAO  TIMESTAMP,
    TIPO_ALTERACAO VARCHAR(1),
    TABELA         VARCHAR(60),
    CONSTRAINT PK_GER_LOG_CADASTROS PRIMARY KEY (LOG_CADASTROS)
);

-- Change log items, no primary key
create table GER_LOG_CADASTROS_ITENS (
    LOG_CADASTROS  INTEGER NOT NULL,
    CAMPO          VARCHAR(60),
    VALOR_ANTERIOR VARCHAR(250),
    VALOR_ATUAL    VARCHAR(250),
    CONTEUDO_CHAVE VARCHAR(250)
);
create index IX_GER_LOG_CADASTROS_ITENS_1 on GER_LOG_CADASTROS_ITENS (LOG_CADASTROS);

-- Numbering sequences, one row per table and key
create table GER_NUMERADOR (
    EMPRESA       INTEGER NOT NULL,
    REVENDA       INTEGER NOT NULL,
    TABELA        VARCHAR(60) NOT NULL,
    CHAVE         VARCHAR(60) NOT NULL,
    ULTIMO_NUMERO INTEGER NOT NULL,
    CONSTRAINT PK_GER_NUMERADOR PRIMARY KEY (EMPRESA, REVENDA, TABELA, CHAVE)
);

-- Summarised balances kept for the rest of the suite. Unused key texts hold an empty string and unused key integers hold -1
create table INT_SALDO_SUMARIZADO (
    TIPO_SALDO VARCHAR(1) NOT NULL,
    TEXTO3     VARCHAR(10) NOT NULL,
    TEXTO4     VARCHAR(10) NOT NULL,
    CONTA      VARCHAR(20) NOT NULL,
    NATUREZA   VARCHAR(1) NOT NULL,
    EMPRESA    INTEGER NOT NULL,
    REVENDA    INTEGER NOT NULL,
    ANO_MES    INTEGER NOT NULL,
    DIVISAO1   INTEGER NOT NULL,
    DIVISAO2   INTEGER NOT NULL,
    DIVISAO3   INTEGER NOT NULL,
    DIVISAO4   INTEGER NOT NULL,
    DIVISAO5   INTEGER NOT NULL,
    SALDO      NUMERIC(15,2),
    CONSTRAINT PK_INT_SALDO_SUMARIZADO PRIMARY KEY (TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, REVENDA, ANO_MES, DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5)
);

-- Structure version of this database
create table GER_VERSAO_ESTRUTURA (
    VERSAO VARCHAR(10) NOT NULL,
    CONSTRAINT PK_GER_VERSAO_ESTRUTURA PRIMARY KEY (VERSAO)
);

-- Structure version row
insert into GER_VERSAO_ESTRUTURA (VERSAO) values ('2.09');

-- Planner statistics. The journal tables grow to millions of rows under a few companies and
-- dealerships, while one account or one month selects few of them. Without statistics the
-- planner may start a join from the division rows of a whole company. These fixed figures
-- describe that shape (they are not measured) and every connection loads them when it opens.
--
-- IX_CTB_LANCAMENTO_1 and IX_CTB_LANCAMENTO_CV_1 hold the account, nature, month and amount, so
-- the reads that group a period by account and nature are answered from them alone, in their
-- order. Their company and dealership figure is set low on purpose - the planner, which cannot
-- tell a range of one month from a range of years, then reads them instead of a month range
-- of IX_CTB_LANCAMENTO_2 followed by a lookup of every row and a sort. They also hold the day,
-- the entry number and the standard history, and the division indexes hold every column the
-- division reads take: the joins of division rows with their entries, by account or by period,
-- then never look up a row of either table.
analyze sqlite_schema;
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO', 'sqlite_autoindex_CTB_LANCAMENTO_1', '1000000 1000000 200000 10000 1');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO', 'IX_CTB_LANCAMENTO_1', '1000000 1000000 50000 500 250 15 2 1 1 1');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO', 'IX_CTB_LANCAMENTO_2', '1000000 1000000 200000 10000 2');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO_DIVIDIDO', 'IX_CTB_LANCAMENTO_DIVIDIDO_1', '1000000 1000000 200000 10000 2 2 2 2 2 2 2 2 1');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO_CV', 'sqlite_autoindex_CTB_LANCAMENTO_CV_1', '1000000 1000000 200000 10000 1');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO_CV', 'IX_CTB_LANCAMENTO_CV_1', '1000000 1000000 50000 500 250 15 2 1 1 1');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO_CV', 'IX_CTB_LANCAMENTO_CV_2', '1000000 1000000 200000 10000 2');
insert into sqlite_stat1 (tbl, idx, stat) values ('CTB_LANCAMENTO_DIVIDIDO_CV', 'IX_CTB_LANC_DIVIDIDO_CV_1', '1000000 1000000 200000 10000 2 2 2 2 2 2 2 2 1');
analyze sqlite_schema;
